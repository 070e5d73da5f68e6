// The networked engine's connection, continued: the caller's transaction and the multi-statement
// scopes, the keep-alive probe, notifications, and whether a closing handle's connection can
// serve the next one.
#include <errno.h>
#include <poll.h>

#include "bsapi/postgres/PgConn.h"

namespace bsapi {

bool CPgConn::Reusable() {
    std::lock_guard<std::mutex> lock(m_mtx);
    if (m_pConn == nullptr || m_bUserTxn || m_nDoomCode != 0 || m_nScopeDepth != 0 ||
        m_bFatalSeen || PQtransactionStatus(m_pConn) != PQTRANS_IDLE)
        return false;
    if (m_bListening && SimpleLocked("UNLISTEN *") != BS_OK)
        return false;
    m_bListening = false;
    TakeNotification("");
    return true;
}

bool CPgConn::InUserTxn() {
    std::lock_guard<std::mutex> lock(m_mtx);
    return m_bUserTxn;
}

int CPgConn::BeginUser(long long lockKey) {
    std::lock_guard<std::mutex> lock(m_mtx);
    if (m_pConn == nullptr)
        return m_nLostCode;
    if (m_bUserTxn)
        return BS_ERR_IN_TRANSACTION;
    int rc = SimpleLocked("BEGIN");
    if (rc != BS_OK)
        return rc;
    CPgResult res;
    rc = RunLocked("SELECT pg_advisory_xact_lock($1::bigint)", CPgParams().Int(lockKey), res);
    if (rc != BS_OK) {
        SimpleLocked("ROLLBACK");
        return rc;
    }
    m_bUserTxn = true;
    m_nDoomCode = 0;
    return BS_OK;
}

int CPgConn::CommitUser() {
    std::lock_guard<std::mutex> lock(m_mtx);
    if (m_pConn == nullptr)
        return m_nLostCode;
    if (!m_bUserTxn)
        return BS_ERR_NO_TRANSACTION;
    if (m_nDoomCode != 0) {
        int rc = m_nDoomCode;
        m_nDoomCode = 0;
        m_bUserTxn = false;
        return rc;
    }
    bool failed = PQtransactionStatus(m_pConn) == PQTRANS_INERROR;
    int rc = SimpleLocked(failed ? "ROLLBACK" : "COMMIT");
    if (m_pConn != nullptr && PQtransactionStatus(m_pConn) == PQTRANS_IDLE)
        m_bUserTxn = false;
    return failed && rc == BS_OK ? BS_ERR_INTERNAL : rc;
}

int CPgConn::RollbackUser() {
    std::lock_guard<std::mutex> lock(m_mtx);
    if (m_pConn == nullptr)
        return m_nLostCode;
    if (!m_bUserTxn)
        return BS_ERR_NO_TRANSACTION;
    m_bUserTxn = false;
    if (m_nDoomCode != 0) {
        m_nDoomCode = 0;  // rolled back when the conflict was found
        return BS_OK;
    }
    return SimpleLocked("ROLLBACK");
}

int CPgConn::BeginScope() {
    std::lock_guard<std::mutex> lock(m_mtx);
    if (m_pConn == nullptr)
        return m_nLostCode;
    if (m_nDoomCode != 0)
        return m_nDoomCode;
    bool savepoint = m_bUserTxn;
    int rc = SimpleLocked(savepoint ? "SAVEPOINT bs_scope" : "BEGIN");
    if (rc == BS_OK) {
        ++m_nScopeDepth;
        m_bScopeSavepoint = savepoint;
    }
    return rc;
}

int CPgConn::EndScope(int rc) {
    std::lock_guard<std::mutex> lock(m_mtx);
    if (m_nScopeDepth == 0)
        return rc;
    --m_nScopeDepth;
    if (m_pConn == nullptr)
        return rc != BS_OK ? rc : m_nLostCode;
    if (m_nDoomCode != 0)
        return m_nDoomCode;
    if (rc == BS_OK) {
        rc = SimpleLocked(m_bScopeSavepoint ? "RELEASE SAVEPOINT bs_scope" : "COMMIT");
        if (rc == BS_OK)
            return BS_OK;
    }
    if (m_pConn != nullptr) {
        if (rc == BS_ERR_CONFLICT && m_bUserTxn && m_nDoomCode == 0) {
            m_nDoomCode = BS_ERR_CONFLICT;
            SimpleLocked("ROLLBACK");
        } else {
            SimpleLocked(m_bScopeSavepoint
                             ? "ROLLBACK TO SAVEPOINT bs_scope; RELEASE SAVEPOINT bs_scope"
                             : "ROLLBACK");
        }
    }
    return rc;
}

int CPgConn::KeepLive() {
    std::lock_guard<std::mutex> lock(m_mtx);
    if (m_pConn == nullptr)
        return m_nLostCode;
    for (int i = 0; i < 4; ++i) {  // a last message and the end of the stream may come apart
        pollfd p{PQsocket(m_pConn), POLLIN, 0};
        if (::poll(&p, 1, 0) <= 0)
            break;
        if (!PQconsumeInput(m_pConn))
            return Lost("the server ended the connection");
        PQisBusy(m_pConn);  // parses what came: a FATAL notice sets m_bFatalSeen
    }
    if (m_bFatalSeen || PQstatus(m_pConn) == CONNECTION_BAD)
        return Lost("the server ended the connection");
    return BS_OK;
}

int CPgConn::Listen(const std::string& channel) {
    std::lock_guard<std::mutex> lock(m_mtx);
    int rc = SimpleLocked("LISTEN \"" + channel + "\"");
    if (rc == BS_OK)
        m_bListening = true;
    return rc;
}

void CPgConn::DropNotifications() {
    std::lock_guard<std::mutex> lock(m_mtx);
    TakeNotification("");
}

bool CPgConn::TakeNotification(const std::string& channel) {
    bool found = false;
    while (m_pConn != nullptr) {
        PGnotify* n = PQnotifies(m_pConn);
        if (n == nullptr)
            break;
        found = found || channel == n->relname;
        PQfreemem(n);
    }
    return found;
}

int CPgConn::WaitNotification(const std::string& channel, TimePoint deadline) {
    std::lock_guard<std::mutex> lock(m_mtx);
    for (;;) {
        if (m_pConn == nullptr)
            return m_nLostCode;
        if (TakeNotification(channel))
            return BS_OK;
        auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline -
                                                                 std::chrono::steady_clock::now());
        int ms = left.count() <= 0 ? 0 : static_cast<int>(left.count());
        if (ms == 0)
            return BS_ERR_TIMEOUT;
        pollfd p{PQsocket(m_pConn), POLLIN, 0};
        int n = ::poll(&p, 1, ms);
        if (n < 0 && errno != EINTR)
            return Lost("poll failed");
        if (n > 0 && !PQconsumeInput(m_pConn))
            return Lost("the server ended the connection");
    }
}

}  // namespace bsapi
