// One connection of the networked engine: statements prepared once per connection, the caller's
// transaction with its savepoints, keep-alive probes, notifications, and the mapping of the
// server's answers to our result codes.
#pragma once

#include <libpq-fe.h>

#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

#include "bsapi/Engine.h"
#include "bsapi/postgres/PgWire.h"

namespace bsapi {

struct CPgTarget;

class CPgConn {
public:
    typedef std::chrono::steady_clock::time_point TimePoint;

    ~CPgConn();
    // Connects with the configured connection string and the search path on the server's schema,
    // and (with `ensure`) creates the schema when this process has not seen it yet.
    // BS_ERR_CONN_LOST (with a message naming the server, never the password) when the server
    // cannot be reached in time. A connection that a closed handle left in good order (no
    // transaction, nothing listened to) is taken up again when the settings are the same
    // (PgPool.cpp); the last owner gives it back.
    static int Connect(const CServerAddr& server, std::shared_ptr<CPgConn>& out,
                       bool ensure = true);
    const std::string& PoolKey() const { return m_strPoolKey; }
    // True when the connection can serve another handle as it is; clears what it listened to.
    bool Reusable();
    const std::string& Schema() const { return m_strSchema; }

    // Runs one statement, prepared on this connection when it first runs; parameters and results
    // in binary form. Inside the caller's transaction the statement runs inside a savepoint, so
    // that a failing statement leaves the transaction as it was, as in the embedded engine.
    int Run(const std::string& sql, const CPgParams& params, CPgResult& res);
    int Run(const std::string& sql, const CPgParams& params) {
        CPgResult ignored;
        return Run(sql, params, ignored);
    }
    // A statement without parameters through the simple protocol (DDL, LISTEN).
    int Simple(const std::string& sql);

    // The caller's transaction: BEGIN plus the advisory lock `lockKey` (one per tree or table
    // database), so that two transactions on one database take turns as in the embedded engine:
    // the second waits up to the busy time-out, then gets 2001.
    bool InUserTxn();
    int BeginUser(long long lockKey);
    int CommitUser();
    int RollbackUser();
    // A multi-statement change made whole: a transaction of its own, or a savepoint inside the
    // caller's. EndScope commits on BS_OK and undoes otherwise; it returns the final code.
    int BeginScope();
    int EndScope(int rc);

    // 0 while the connection can serve: the socket is checked without blocking, so a server that
    // ended the connection (restart, pg_terminate_backend) is noticed here.
    int KeepLive();
    // The SQLSTATE of the last failed statement ("" when none), for the callers that tell one
    // constraint from another (23505 unique, 23503 foreign key).
    const std::string& LastState() const { return m_strLastState; }

    // Notifications: LISTEN on `channel` (our own identifier, never caller text), drop those
    // received so far, and wait for one until `deadline`: BS_OK, BS_ERR_TIMEOUT or a lost code.
    int Listen(const std::string& channel);  // LISTEN; Reusable() ends it
    void DropNotifications();
    int WaitNotification(const std::string& channel, TimePoint deadline);

private:
    CPgConn() = default;
    static int Open(const std::vector<const char*>& keys, const std::vector<const char*>& values,
                    const CPgTarget& target, std::shared_ptr<CPgConn>& out);
    int RunLocked(const std::string& sql, const CPgParams& params, CPgResult& res);
    int SimpleLocked(const std::string& sql);
    int Await(TimePoint deadline);  // until a result can be read without blocking
    int Collect(int commands, int target, CPgResult* res, TimePoint deadline);
    int ErrorCode(const PGresult* res);
    int Lost(const char* why);
    int Failed(int rc, bool wrapped);  // the follow-up of a failed statement
    TimePoint Deadline() const;
    bool TakeNotification(const std::string& channel);
    static void OnNotice(void* self, const PGresult* notice);

    std::mutex m_mtx;  // guards everything below: a table handle and its cursors share this object
    PGconn* m_pConn = nullptr;  // null once the connection is lost
    std::string m_strSchema, m_strWhere;
    int m_nTimeoutMs = 30000;
    int m_nLostCode = BS_ERR_CONN_LOST;
    std::unordered_map<std::string, std::string> m_mapPrepared;  // statement text -> name
    bool m_bUserTxn = false;
    int m_nDoomCode = 0;  // set when a conflict rolled the caller's transaction back
    int m_nScopeDepth = 0;
    bool m_bScopeSavepoint = false;
    long long m_llNextStmt = 0;
    std::string m_strLastState;
    bool m_bFatalSeen = false;  // the server announced the end of the connection
    bool m_bListening = false;
    bool m_bEnsured = false;   // the schema was checked (or made) on this connection
    std::string m_strPoolKey;  // schema and settings: idle connections are shared by this key
};

// The pool of idle connections (PgPool.cpp): at most a few per key, for this process only.
CPgConn* PgTakeIdle(const std::string& key);
void PgRecycle(CPgConn* conn);  // the deleter of every connection's shared_ptr

// Maps a SQLSTATE to a result code of the table in bsapi.h.
int MapSqlState(const char* state);

}  // namespace bsapi
