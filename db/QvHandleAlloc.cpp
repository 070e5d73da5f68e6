// CQvHandleLoc: allocation from the pools and the hand-back, the tree open with its default
// flags, retries and permanent codes, the liveness probe, reopening by names, and the table and
// queue allocations. Calls go down only: into the pools and the transaction piece (CQvTxn).
#include <cstdio>

#include "common/DebugLog.h"
#include "db/QvHandle.h"
#include "db/QvVar.h"

namespace {

const int kDefaultPort = 8123;
const int kAttempts = 4;
const unsigned kCreateFlags = 0x80000u;   // create a missing tree and main key
const unsigned kCcubaseFlags = 0x80080u;  // the same, marked as the application's own tree

bool IsBroken(int rc) {
    return rc == BS_ERR_CONN_CLOSED || rc == BS_ERR_CONN_LOST || rc == BS_ERR_CONN_RESET;
}

const char* SubOrNull(const std::string& s) {
    return s.empty() ? nullptr : s.c_str();
}

int DefaultFlags(const std::string& treeName) {
    return static_cast<int>(treeName == "ccubase" ? kCcubaseFlags : kCreateFlags);
}

}  // namespace

CQvHandleLoc::CQvHandleLoc()
    : m_bOpened(false),
      m_pHandle(nullptr),
      m_pHandlePool(nullptr),
      m_pServerPool(nullptr),
      m_nKind(-1) {}

CQvHandleLoc::~CQvHandleLoc() {
    FreeHandle();
}

void CQvHandleLoc::ReturnHandle() {
    if (m_pHandle == nullptr)
        return;
    // A handle never goes back to the pool with this locator's transaction still open.
    m_txn.EndBeforeHandBack(m_pHandle, m_nKind, false);
    if (m_pHandlePool != nullptr) {
        m_pHandlePool->Free(m_pHandle);
    } else {
        delete m_pHandle;
    }
    m_pHandle = nullptr;
    m_nKind = -1;
}

void CQvHandleLoc::FreeHandle() {
    m_txn.EndBeforeHandBack(m_pHandle, m_nKind, true);
    if (m_pHandle != nullptr) {
        if (m_pHandlePool != nullptr) {
            m_pHandlePool->Free(m_pHandle);
        } else {
            delete m_pHandle;
        }
    }
    CDealHandleObj::DeleteHandleObj(m_pHandlePool);
    CDealHandleObj::DeleteHandleObj(m_pServerPool);
    m_pHandle = nullptr;
    m_pHandlePool = nullptr;
    m_pServerPool = nullptr;
    m_nKind = -1;
}

bool CQvHandleLoc::AllocHandleFromPool(CDBServer& server, int kind) {
    if (m_pServerPool != nullptr && !(m_pServerPool->GetServer() == server)) {
        ReturnHandle();
        CDealHandleObj::DeleteHandleObj(m_pHandlePool);
        CDealHandleObj::DeleteHandleObj(m_pServerPool);
        m_pHandlePool = nullptr;
        m_pServerPool = nullptr;
    }
    if (m_pServerPool != nullptr && m_pHandlePool != nullptr) {
        if (m_nKind != kind) {
            ReturnHandle();
            CDealHandleObj::DeleteHandleObj(m_pHandlePool);
            m_pHandlePool = nullptr;
        } else if (m_pHandle != nullptr) {
            return true;
        }
    }
    if (m_pServerPool == nullptr) {
        m_pServerPool = g_GrossHandlePool.GetServerPool(CDBServer(server));
        if (m_pServerPool == nullptr)
            return false;
    }
    if (m_pHandlePool == nullptr) {
        m_pHandlePool = m_pServerPool->GetHandlePool(kind);
        if (m_pHandlePool == nullptr)
            return false;
    }
    CConfHandle* handle = m_pHandlePool->Alloc(kind, true);
    if (handle == nullptr)
        return false;
    m_pHandle = handle;
    m_nKind = kind;
    return true;
}

int CQvHandleLoc::Treedb_Alloc(std::string address, std::string treeName, std::string mainKey,
                               std::string keyName, int flags, int port) {
    return Treedb_AllocEx(address, treeName, mainKey, keyName, "", flags, port, false, false, false,
                          BS_INSERT_ACCEPT_EXISTING);
}

int CQvHandleLoc::Treedb_AllocEx(std::string address, std::string treeName, std::string mainKey,
                                 std::string keyName, std::string subKey, int flags, int port,
                                 bool bCreatePath, bool bFresh, bool bReallocate, int insertMode) {
    if (m_bOpened && !bReallocate)
        return 1;
    CDBServer server(address, port == 0 ? kDefaultPort : port);
    if (!AllocHandleFromPool(server, 0))
        return 1;
    CTreedbHd* hd = static_cast<CTreedbHd*>(m_pHandle);
    if (hd->GetId() == 0 && !hd->IsOpen())
        std::printf("-%d--Ddddd", hd->GetId());
    if (hd->IsOpen()) {
        int rc = m_txn.Rollback(hd, CQvTxn::kTree);
        if (rc != 0) {
            std::printf("Alloc的时候事务回滚失败，错误码: %d\n", rc);
            hd->CloseHandle();
        } else if (bFresh) {
            hd->CloseHandle();
        }
    }
    m_strTreeName = treeName;
    m_strMainKey = mainKey;
    m_strKeyName = keyName;
    hd->m_nOpFlag = flags < 0 ? DefaultFlags(treeName) : flags;
    int rc = 1;
    for (int attempt = 1; attempt <= kAttempts; ++attempt) {
        rc = Treedb_ReopenSubKeyEx(subKey, -1, "", "", "", bCreatePath, insertMode);
        if (rc == 0 || rc == BS_ERR_OTHER_NAMES)
            break;
        if (rc == BS_ERR_NO_TREE || rc == BS_ERR_NO_MAINKEY || rc == BS_ERR_BAD_NAME)
            return rc;
    }
    if (rc == 0)
        m_bOpened = true;
    return rc;
}

int CQvHandleLoc::Treedb_ReopenSubKey(std::string subKey, int flags, std::string mainKey,
                                      std::string keyName, std::string treeName) {
    if (m_pHandle == nullptr || m_pHandlePool == nullptr || m_pServerPool == nullptr)
        return 1;
    if (m_nKind != 0)
        return 1;
    CTreedbHd* hd = static_cast<CTreedbHd*>(m_pHandle);
    void*& h = hd->GetHandle();
    if (hd->IsOpen() && bs_handle_keep_live(h) != 0)
        hd->CloseHandle();

    if (flags >= 0) {
        hd->m_nOpFlag = flags;
    } else {
        if (hd->m_nOpFlag < 0)
            hd->m_nOpFlag = DefaultFlags(treeName.empty() ? m_strTreeName : treeName);
        flags = hd->m_nOpFlag;
    }
    if (!mainKey.empty() || !keyName.empty()) {
        m_strMainKey = mainKey;
        m_strKeyName = keyName;
    }
    if (!treeName.empty())
        m_strTreeName = treeName;
    unsigned int uflags = static_cast<unsigned int>(flags);

    if (hd->IsOpen()) {
        std::string tree, main, key, sub;
        unsigned int openFlags = 0, port = 0;
        int rc = bs_treedb_query_handle(h, tree, main, key, openFlags, sub, port);
        if (rc != 0) {
            hd->CloseHandle();
            return rc;
        }
        if (tree != m_strTreeName || main != m_strMainKey) {
            rc = bs_treedb_reopen(h, m_strMainKey.c_str(), SubOrNull(subKey), m_strKeyName.c_str(),
                                  uflags, m_strTreeName.c_str());
            if (rc == 0) {
                hd->m_nOpFlag = flags;
                hd->m_strKeyName = m_strKeyName;
                return 0;
            }
            if (IsBroken(rc))
                hd->CloseHandle();
            return rc;
        }
        if (hd->m_strKeyName != m_strKeyName)
            return BS_ERR_OTHER_NAMES;
        if (sub == subKey)
            return 0;
        rc = bs_treedb_open_subkey(h, SubOrNull(subKey), uflags);
        if (rc == 0) {
            hd->m_nOpFlag = flags;
            return 0;
        }
        if (IsBroken(rc))
            hd->CloseHandle();
        return rc;
    }

    _qvcomm::CDebugLog::WriteTimeFmtLog("handle.log", 10, "open tree %s handle mainkey is %s",
                                        m_strTreeName.c_str(), m_strMainKey.c_str());
    const CDBServer& server = m_pServerPool->GetServer();
    int rc = bs_treedb_open(h, m_strMainKey.c_str(), SubOrNull(subKey), m_strKeyName.c_str(),
                            uflags, m_strTreeName.c_str(), server.m_strAddress.c_str(),
                            static_cast<unsigned short>(server.m_nPort));
    if (rc == 0) {
        hd->m_nOpFlag = flags;
        hd->m_strKeyName = m_strKeyName;
        return 0;
    }
    if (IsBroken(rc))
        hd->CloseHandle();
    return rc;
}

int CQvHandleLoc::Treedb_ReopenSubKeyEx(std::string subKey, int flags, std::string mainKey,
                                        std::string keyName, std::string treeName, bool bCreatePath,
                                        int insertMode) {
    int rc = Treedb_ReopenSubKey(subKey, flags, mainKey, keyName, treeName);
    if (rc == BS_ERR_NO_SUBKEY && bCreatePath && !subKey.empty()) {
        rc = CreatePathAndReopen(subKey, flags, insertMode);
    }
    return rc;
}

int CQvHandleLoc::CreatePathAndReopen(const std::string& subKey, int flags, int insertMode) {
    int rc = Treedb_ReopenSubKey("", flags);
    if (rc != 0)
        return rc;
    void*& h = m_pHandle->GetHandle();
    size_t pos = 0;
    while (true) {
        size_t sep = subKey.find('\\', pos);
        std::string prefix = sep == std::string::npos ? subKey : subKey.substr(0, sep);
        rc = bs_treedb_insert_subkey(h, prefix.c_str(), insertMode);
        // Another borrower may have made the part meanwhile.
        if (rc != 0 && rc != BS_ERR_EXISTS)
            return rc;
        if (sep == std::string::npos)
            break;
        pos = sep + 1;
    }
    return Treedb_ReopenSubKey(subKey, flags);
}

int CQvHandleLoc::Tabledb_Alloc(std::string address, std::string first, std::string second,
                                std::string third, int port, int mode, int option) {
    CDBServer server(address, port);
    if (!AllocHandleFromPool(server, 1))
        return 1;
    int rc = 1;
    for (int attempt = 1; attempt <= kAttempts; ++attempt) {
        rc = Tabledb_ReopenDb(first, second, third, mode, option);
        if (rc == 0 || rc == BS_ERR_OTHER_NAMES)
            break;
    }
    return rc;
}

int CQvHandleLoc::Tabledb_ReopenDb(std::string first, std::string second, std::string third,
                                   int mode, int option) {
    if (m_pHandle == nullptr || m_pHandlePool == nullptr || m_pServerPool == nullptr)
        return 1;
    if (m_nKind != 1)
        return 1;
    void*& h = m_pHandle->GetHandle();
    if (m_pHandle->IsOpen() && bs_handle_keep_live(h) != 0)
        m_pHandle->CloseHandle();
    unsigned int umode = static_cast<unsigned int>(mode);
    unsigned int uoption = static_cast<unsigned int>(option);
    int rc = 0;
    if (m_pHandle->IsOpen()) {
        std::string a, b, c, address;
        unsigned int openMode = 0, openOption = 0;
        unsigned short port = 0;
        rc = bs_tabledb_qurey_handle(h, a, b, c, openMode, openOption, address, port);
        if (rc != 0) {
            m_pHandle->CloseHandle();
            return rc;
        }
        if (a == first && b == second && c == third)
            return 0;
        rc = bs_tabledb_reopen(h, first.c_str(), second.c_str(), third.c_str(), umode, uoption);
    } else {
        const CDBServer& server = m_pServerPool->GetServer();
        rc = bs_tabledb_open(h, first.c_str(), second.c_str(), third.c_str(), umode, uoption,
                             server.m_strAddress.c_str(),
                             static_cast<unsigned short>(server.m_nPort));
    }
    if (IsBroken(rc))
        m_pHandle->CloseHandle();
    return rc;
}

int CQvHandleLoc::MQdb_Alloc(std::string address, std::string queueName, std::string secondName,
                             int mode, int flags, int port) {
    CDBServer server(address, port == 0 ? kDefaultPort : port);
    if (!AllocHandleFromPool(server, 2))
        return 1;
    CMQHd* hd = static_cast<CMQHd*>(m_pHandle);
    if (hd->IsOpen() && hd->m_strMQName == queueName) {
        return hd->m_strSecondName == secondName ? 0 : BS_ERR_OTHER_NAMES;
    }
    const CDBServer& s = m_pServerPool->GetServer();
    int rc = CQvVar::OpenMQ(s.m_strAddress, queueName, secondName, hd->GetHandle(), mode,
                            static_cast<unsigned int>(flags), s.m_nPort);
    if (rc != 0) {
        hd->CloseHandle();
        hd->m_strMQName.clear();
        hd->m_strSecondName.clear();
        return rc;
    }
    hd->m_strMQName = queueName;
    hd->m_strSecondName = secondName;
    hd->m_nMode = mode;
    hd->m_nFlags = flags;
    return 0;
}
