// CQvTxn: begin, commit and roll back on a borrowed tree or table handle, and the rollback that
// every hand-back makes.
#include "db/QvHandleTxn.h"

#include <cstdio>

#include "bsapi/bsapi.h"

namespace {

// A transaction call's answer: 0 and 58 (nothing was open) end the transaction.
bool EndsTransaction(int rc) {
    return rc == 0 || rc == BS_ERR_NO_TRANSACTION;
}

}  // namespace

int CQvTxn::Begin(CConfHandle* handle, int kind) {
    if (handle == nullptr || (kind != kTree && kind != kTable))
        return 1;
    void*& h = handle->GetHandle();
    int rc = kind == kTree ? bs_treedb_begin_transaction(h) : bs_tabledb_begin_transaction(h);
    m_bOpen = rc == 0;
    return rc;
}

int CQvTxn::Commit(CConfHandle* handle, int kind) {
    if (handle == nullptr || (kind != kTree && kind != kTable))
        return 1;
    if (!m_bOpen)
        return 0;
    void*& h = handle->GetHandle();
    int rc = kind == kTree ? bs_treedb_commit_transaction(h) : bs_tabledb_commit_transaction(h);
    if (!EndsTransaction(rc))
        return rc;  // still open: rolled back at hand-back
    m_bOpen = false;
    return 0;
}

int CQvTxn::Rollback(CConfHandle* handle, int kind) {
    if (kind == kQueue) {  // queues have no transactions
        m_bOpen = false;
        return 0;
    }
    if (handle == nullptr || (kind != kTree && kind != kTable))
        return 1;
    if (!m_bOpen)
        return 0;
    void*& h = handle->GetHandle();
    int rc = kind == kTree ? bs_treedb_rollback_transaction(h) : bs_tabledb_rollback_transaction(h);
    if (!EndsTransaction(rc))
        return rc;
    m_bOpen = false;
    return 0;
}

void CQvTxn::EndBeforeHandBack(CConfHandle* handle, int kind, bool report) {
    if (m_bOpen && handle != nullptr) {
        int rc = Rollback(handle, kind);
        if (rc != 0) {
            if (report)
                std::printf("事务回滚失败，错误码: %d\n", rc);
            // Dropping the connection ends the transaction; the next borrower opens a clean one.
            handle->CloseHandle();
        }
    }
    m_bOpen = false;
}
