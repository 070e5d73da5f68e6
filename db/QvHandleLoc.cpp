// CQvHandleLoc: the locator's own layer over its pieces: the transaction calls (handed to
// CQvTxn), ReplaceHandle, which closes the held connection and allocates again, and the small
// accessors. Calls go down only: into the allocation (QvHandleAlloc.cpp) and CQvTxn.
#include <cstdio>

#include "db/QvHandle.h"

int CQvHandleLoc::Treedb_BeginTransaction() {
    return m_txn.Begin(m_pHandle, CQvTxn::kTree);
}

int CQvHandleLoc::Treedb_CommitTransaction() {
    return m_txn.Commit(m_pHandle, CQvTxn::kTree);
}

int CQvHandleLoc::Treedb_RollbackTransaction() {
    return m_txn.Rollback(m_pHandle, CQvTxn::kTree);
}

int CQvHandleLoc::Tabledb_BeginTransaction() {
    return m_txn.Begin(m_pHandle, CQvTxn::kTable);
}

int CQvHandleLoc::Tabledb_CommitTransaction() {
    return m_txn.Commit(m_pHandle, CQvTxn::kTable);
}

int CQvHandleLoc::Tabledb_RollbackTransaction() {
    return m_txn.Rollback(m_pHandle, CQvTxn::kTable);
}

int CQvHandleLoc::RollbackTransaction() {
    return m_txn.Rollback(m_pHandle, m_nKind);
}

int CQvHandleLoc::GetAllHandleSize() {
    if (m_pServerPool == nullptr)
        return -1;
    int total = 0;
    for (int kind : {1, 2, 0}) {
        CHandlePool* pool = m_pServerPool->GetHandlePool(kind);
        total += pool->FreeHandleSize();
        // Dropping the accessor's reference never destroys a member pool: the server pool keeps
        // a standing one.
        CDealHandleObj::DeleteHandleObj(pool);
    }
    return total;
}

int CQvHandleLoc::ReplaceHandle() {
    std::printf("Replace handle ........\n");
    if (m_pHandle == nullptr || m_pServerPool == nullptr)
        return 1;
    // The transaction, if any, ends with the connection that is closed here.
    const std::string address = m_pServerPool->GetServer().m_strAddress;
    void*& h = m_pHandle->GetHandle();
    if (m_nKind == 1) {
        std::string a, b, c, reported;
        unsigned int mode = 0, option = 0;
        unsigned short port = 0;
        int rc = bs_tabledb_qurey_handle(h, a, b, c, mode, option, reported, port);
        if (rc != 0)
            return rc;
        m_pHandle->CloseHandle();
        m_txn.Forget();
        return Tabledb_Alloc(reported, a, b, c, port, static_cast<int>(mode),
                             static_cast<int>(option));
    }
    if (m_nKind == 2) {
        CMQHd* hd = static_cast<CMQHd*>(m_pHandle);
        std::string queue = hd->m_strMQName, second = hd->m_strSecondName;
        int mode = hd->m_nMode < 0 ? 3 : hd->m_nMode;
        int flags = hd->m_nFlags < 0 ? 0 : hd->m_nFlags;
        int port = m_pServerPool->GetServer().m_nPort;
        hd->CloseHandle();
        m_txn.Forget();
        return MQdb_Alloc(address, queue, second, mode, flags, port);
    }
    if (m_nKind == 0) {
        std::string tree = m_strTreeName, main = m_strMainKey, key, sub;
        unsigned int flags = 0, port = 0;
        int rc = bs_treedb_query_handle(h, tree, main, key, flags, sub, port);
        if (rc != 0) {
            // Not open: rebuild from the names this locator keeps, on the main key.
            tree = m_strTreeName;
            main = m_strMainKey;
            key = m_strKeyName;
            sub.clear();
            flags = static_cast<unsigned int>(static_cast<CTreedbHd*>(m_pHandle)->m_nOpFlag);
            port = static_cast<unsigned int>(m_pServerPool->GetServer().m_nPort);
        }
        m_pHandle->CloseHandle();
        m_txn.Forget();
        // A locator serves one plain Treedb_Alloc in its life; the replacement is the one case
        // where it allocates again, so it goes through the reallocating form.
        rc = Treedb_AllocEx(address, tree, main, key, "", static_cast<int>(flags),
                            static_cast<int>(port), false, false, true, BS_INSERT_ACCEPT_EXISTING);
        if (rc != 0 || sub.empty())
            return rc;
        return Treedb_ReopenSubKey(sub, -1);
    }
    return 1;
}

int CQvHandleLoc::OpFlag() const {
    if (m_pHandle == nullptr || m_nKind != 0)
        return 0x80000;
    return static_cast<const CTreedbHd*>(m_pHandle)->m_nOpFlag;
}

std::string CQvHandleLoc::CCUFile() const {
    if (m_pHandlePool != nullptr && m_nKind == 0)
        return m_strTreeName;
    return std::string();
}
