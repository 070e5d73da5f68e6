// The networked engine's connection: connecting within the time-out, statements sent in pipeline
// mode (prepare, savepoint, execute and release in one round trip), waiting with a deadline, and
// what a failed statement means for the connection and the caller's transaction.
#include "bsapi/postgres/PgConn.h"

#include <errno.h>
#include <poll.h>

#include <cstring>
#include <vector>

#include "bsapi/postgres/PgConfig.h"
#include "bsapi/postgres/PgEngine.h"

namespace bsapi {

namespace {

// The first line of a libpq message, tabs and line ends folded.
std::string OneLine(const char* text) {
    std::string out;
    for (const char* p = text ? text : ""; *p; ++p) {
        if (*p == '\n' && p[1] == '\0')
            break;
        out += (*p == '\n' || *p == '\t') ? ' ' : *p;
    }
    return out;
}

int MillisLeft(CPgConn::TimePoint deadline) {
    auto left =
        std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    return left.count() <= 0 ? 0 : static_cast<int>(left.count());
}

}  // namespace

int MapSqlState(const char* state) {
    if (state == nullptr || std::strlen(state) != 5)
        return BS_ERR_INTERNAL;
    std::string s(state), cls = s.substr(0, 2);
    if (s == "55P03" || s == "57014")  // lock_timeout, statement_timeout
        return BS_ERR_BUSY;
    if (s == "40001" || s == "40P01")  // serialization failure, deadlock
        return BS_ERR_CONFLICT;
    if (cls == "08" || s == "57P01" || s == "57P02" || s == "57P03" || s == "53300")
        return BS_ERR_CONN_LOST;
    if (s == "42P01" || s == "3F000")  // a table or the schema is not there
        return BS_ERR_NO_TABLE;
    if (cls == "54")  // program limits: an index row or a value too large
        return BS_ERR_TOO_BIG;
    if (s == "53200")
        return BS_ERR_NO_MEMORY;
    if (cls == "53" || cls == "58")
        return BS_ERR_IO;
    if (s == "XX001" || s == "XX002")
        return BS_ERR_CORRUPT;
    if (cls == "23")
        return BS_ERR_CONSTRAINT;
    if (cls == "22")
        return BS_ERR_TYPE;
    return BS_ERR_INTERNAL;
}

CPgConn::~CPgConn() {
    if (m_pConn != nullptr)
        PQfinish(m_pConn);  // the server rolls back whatever transaction was open
}

CPgConn::TimePoint CPgConn::Deadline() const {
    // The server's statement_timeout answers first; this margin is for a server or network that
    // does not answer at all.
    return std::chrono::steady_clock::now() + std::chrono::milliseconds(m_nTimeoutMs + 1000);
}

int CPgConn::Connect(const CServerAddr& server, std::shared_ptr<CPgConn>& out, bool ensure) {
    const std::string schema = PgSchemaName(server);
    CPgTarget target;
    int rc = PgTarget(schema, target);
    if (rc != BS_OK)
        return rc;
    std::vector<const char*> keys, values;
    for (size_t i = 0; i < target.m_vecKeys.size(); ++i) {
        keys.push_back(target.m_vecKeys[i].c_str());
        values.push_back(target.m_vecValues[i].c_str());
    }
    keys.push_back(nullptr);
    values.push_back(nullptr);
    std::string key = schema;
    for (size_t i = 0; i < keys.size() - 1; ++i)
        key += std::string("\n") + keys[i] + "=" + values[i];
    std::shared_ptr<CPgConn> conn;
    if (CPgConn* idle = PgTakeIdle(key)) {
        conn.reset(idle, &PgRecycle);
    } else {
        rc = Open(keys, values, target, conn);
        if (rc != BS_OK)
            return rc;
    }
    conn->m_strSchema = schema;
    conn->m_strPoolKey = key;
    if (ensure && !conn->m_bEnsured) {
        rc = PgEnsureSchema(*conn, server);
        if (rc != BS_OK)
            return rc;
        conn->m_bEnsured = true;
    }
    out = std::move(conn);
    return BS_OK;
}

int CPgConn::Open(const std::vector<const char*>& keys, const std::vector<const char*>& values,
                  const CPgTarget& target, std::shared_ptr<CPgConn>& out) {
    std::shared_ptr<CPgConn> conn(new CPgConn(), &PgRecycle);
    conn->m_strWhere = target.m_strWhere;
    conn->m_nTimeoutMs = target.m_nTimeoutMs;
    conn->m_pConn = PQconnectStartParams(keys.data(), values.data(), 0);
    if (conn->m_pConn == nullptr)
        return BS_ERR_NO_MEMORY;
    TimePoint deadline =
        std::chrono::steady_clock::now() + std::chrono::milliseconds(target.m_nConnectMs);
    PostgresPollingStatusType st =
        PQstatus(conn->m_pConn) == CONNECTION_BAD ? PGRES_POLLING_FAILED : PGRES_POLLING_WRITING;
    const char* why = nullptr;
    while (st != PGRES_POLLING_OK && st != PGRES_POLLING_FAILED) {
        int ms = MillisLeft(deadline);
        if (ms == 0) {
            why = "no answer within the connect time-out";
            break;
        }
        pollfd p{PQsocket(conn->m_pConn),
                 static_cast<short>(st == PGRES_POLLING_READING ? POLLIN : POLLOUT), 0};
        int n = ::poll(&p, 1, ms);
        if (n < 0 && errno != EINTR) {
            why = "poll failed";
            break;
        }
        if (n > 0)
            st = PQconnectPoll(conn->m_pConn);
    }
    if (st != PGRES_POLLING_OK) {
        std::string msg = why ? why : OneLine(PQerrorMessage(conn->m_pConn));
        PgLog("cannot connect to PostgreSQL (" + target.m_strWhere + "): " + msg);
        return BS_ERR_CONN_LOST;
    }
    PQsetnonblocking(conn->m_pConn, 1);
    PQsetNoticeReceiver(conn->m_pConn, &CPgConn::OnNotice, conn.get());
    out = std::move(conn);
    return BS_OK;
}

// The server's notices and warnings go to our rate-limited log; a FATAL one that arrives while
// the connection is idle (pg_terminate_backend, a shutdown) means the server is ending it.
// Called by libpq inside this connection's calls, so under m_mtx.
void CPgConn::OnNotice(void* self, const PGresult* notice) {
    const char* severity = PQresultErrorField(notice, PG_DIAG_SEVERITY_NONLOCALIZED);
    std::string sev = severity ? severity : "";
    if (sev == "FATAL" || sev == "PANIC")
        static_cast<CPgConn*>(self)->m_bFatalSeen = true;
    if (sev != "NOTICE" && sev != "DEBUG" && sev != "LOG" && sev != "INFO") {
        PgLog("PostgreSQL (" + static_cast<CPgConn*>(self)->m_strWhere + ") says: " + sev + " " +
              OneLine(PQresultErrorField(notice, PG_DIAG_MESSAGE_PRIMARY)));
    }
}

int CPgConn::Lost(const char* why) {
    if (m_pConn != nullptr) {
        std::string msg = OneLine(PQerrorMessage(m_pConn));
        PgLog("lost the connection to PostgreSQL (" + m_strWhere + "): " + why +
              (msg.empty() ? "" : ": " + msg));
        PQfinish(m_pConn);
        m_pConn = nullptr;
    }
    m_mapPrepared.clear();
    return m_nLostCode;
}

int CPgConn::Await(TimePoint deadline) {
    for (;;) {
        if (m_pConn == nullptr)
            return m_nLostCode;
        int f = PQflush(m_pConn);
        if (f < 0)
            return Lost("sending failed");
        if (f == 0 && !PQisBusy(m_pConn))
            return BS_OK;
        int ms = MillisLeft(deadline);
        if (ms == 0)
            return Lost("no answer within the time-out");
        pollfd p{PQsocket(m_pConn), static_cast<short>(POLLIN | (f ? POLLOUT : 0)), 0};
        int n = ::poll(&p, 1, ms);
        if (n < 0 && errno != EINTR)
            return Lost("poll failed");
        if (n > 0 && (p.revents & (POLLIN | POLLERR | POLLHUP)) && !PQconsumeInput(m_pConn))
            return Lost("the server ended the connection");
    }
}

int CPgConn::ErrorCode(const PGresult* res) {
    const char* state = PQresultErrorField(res, PG_DIAG_SQLSTATE);
    m_strLastState = state ? state : "";
    if (PQstatus(m_pConn) == CONNECTION_BAD)
        return BS_ERR_CONN_LOST;
    int rc = MapSqlState(state);
    if (rc == BS_ERR_INTERNAL) {
        // The primary message names the statement's trouble; values only ever appear in the
        // detail, which is left out.
        PgLog("PostgreSQL refused a statement (" + m_strLastState +
              "): " + OneLine(PQresultErrorField(res, PG_DIAG_MESSAGE_PRIMARY)));
    }
    return rc;
}

// Reads the results of `commands` commands (in pipeline mode also the closing sync, and then
// leaves that mode); the rows of command `target` go to `res`. The first failure's code is
// returned.
int CPgConn::Collect(int commands, int target, CPgResult* res, TimePoint deadline) {
    bool pipeline = PQpipelineStatus(m_pConn) != PQ_PIPELINE_OFF;
    int err = BS_OK;
    for (int i = 0; i < commands + (pipeline ? 1 : 0); ++i) {
        for (;;) {
            int rc = Await(deadline);
            if (rc != BS_OK)
                return rc;
            PGresult* r = PQgetResult(m_pConn);
            if (r == nullptr)
                break;
            ExecStatusType s = PQresultStatus(r);
            if (s == PGRES_FATAL_ERROR && err == BS_OK)
                err = ErrorCode(r);
            if (res != nullptr && i == target && (s == PGRES_TUPLES_OK || s == PGRES_COMMAND_OK)) {
                res->Reset(r);
            } else {
                PQclear(r);
            }
            if (s == PGRES_PIPELINE_SYNC)
                break;  // no empty result follows the sync
        }
    }
    if (pipeline && PQexitPipelineMode(m_pConn) != 1)
        return Lost("the pipeline did not end");
    return err;
}

int CPgConn::Run(const std::string& sql, const CPgParams& params, CPgResult& res) {
    std::lock_guard<std::mutex> lock(m_mtx);
    return RunLocked(sql, params, res);
}

int CPgConn::RunLocked(const std::string& sql, const CPgParams& params, CPgResult& res) {
    if (m_pConn == nullptr)
        return m_nLostCode;
    if (m_nDoomCode != 0)
        return m_nDoomCode;
    auto it = m_mapPrepared.find(sql);
    bool prepare = it == m_mapPrepared.end();
    if (prepare && m_mapPrepared.size() >= 1000 && !m_bUserTxn && m_nScopeDepth == 0) {
        // Statements of tables long dropped pile up otherwise.
        int rc = SimpleLocked("DEALLOCATE ALL");
        if (rc != BS_OK)
            return rc;
        m_mapPrepared.clear();
    }
    std::string name = prepare ? "b" + std::to_string(m_llNextStmt++) : it->second;
    bool wrap = m_bUserTxn && m_nScopeDepth == 0;
    std::vector<const char*> values;
    std::vector<int> lengths, formats;
    params.Arrays(values, lengths, formats);
    if (!wrap && !prepare) {
        // The common case: one round trip, as a plain prepared execution.
        if (!PQsendQueryPrepared(m_pConn, name.c_str(), params.Count(), values.data(),
                                 lengths.data(), formats.data(), 1))
            return Lost("sending failed");
        int rc = Collect(1, 0, &res, Deadline());
        return rc == BS_OK ? BS_OK : Failed(rc, false);
    }
    if (PQenterPipelineMode(m_pConn) != 1)
        return Lost("cannot enter pipeline mode");
    int commands = 0, sent = 1;
    if (wrap) {
        sent &=
            PQsendQueryParams(m_pConn, "SAVEPOINT bs_op", 0, nullptr, nullptr, nullptr, nullptr, 0);
        ++commands;
    }
    if (prepare) {
        sent &= PQsendPrepare(m_pConn, name.c_str(), sql.c_str(), 0, nullptr);
        ++commands;
    }
    int target = commands++;
    sent &= PQsendQueryPrepared(m_pConn, name.c_str(), params.Count(), values.data(),
                                lengths.data(), formats.data(), 1);
    if (wrap) {
        sent &= PQsendQueryParams(m_pConn, "RELEASE SAVEPOINT bs_op", 0, nullptr, nullptr, nullptr,
                                  nullptr, 0);
        ++commands;
    }
    sent &= PQpipelineSync(m_pConn);
    if (!sent)
        return Lost("sending failed");
    int rc = Collect(commands, target, &res, Deadline());
    if (rc == BS_OK) {
        if (prepare)
            m_mapPrepared[sql] = name;
        return BS_OK;
    }
    return Failed(rc, wrap);
}

int CPgConn::Failed(int rc, bool wrapped) {
    if (m_pConn == nullptr)
        return m_nLostCode;
    if (rc == BS_ERR_CONN_LOST)
        return Lost("the server ended the connection");
    if (rc == BS_ERR_CONFLICT && m_bUserTxn && m_nDoomCode == 0) {
        // The transaction lost a deadlock or a serialization check: end it now so that the
        // other side goes on, and keep answering 2018 until the caller ends it too.
        m_nDoomCode = BS_ERR_CONFLICT;
        SimpleLocked("ROLLBACK");
        return rc;
    }
    if (wrapped)
        SimpleLocked("ROLLBACK TO SAVEPOINT bs_op; RELEASE SAVEPOINT bs_op");
    if (rc == BS_ERR_NO_TABLE && m_pConn != nullptr && m_nScopeDepth == 0 &&
        PQtransactionStatus(m_pConn) != PQTRANS_INERROR) {
        // A table of ours missing: a dropped record table, or the whole schema dropped under us.
        CPgResult res;
        int c = RunLocked("SELECT to_regclass('bs_meta') IS NOT NULL", CPgParams(), res);
        if (c == BS_OK && res.Rows() == 1 && !res.Int(0, 0)) {
            PgLog("the PostgreSQL schema \"" + m_strSchema + "\" (" + m_strWhere +
                  ") is missing; it is created again on the next open");
            PgForgetSchema(m_strSchema);
            m_nLostCode = BS_ERR_CONN_RESET;
            return Lost("the schema is missing");
        }
    }
    return rc;
}

int CPgConn::Simple(const std::string& sql) {
    std::lock_guard<std::mutex> lock(m_mtx);
    return SimpleLocked(sql);
}

int CPgConn::SimpleLocked(const std::string& sql) {
    if (m_pConn == nullptr)
        return m_nLostCode;
    if (!PQsendQuery(m_pConn, sql.c_str()))
        return Lost("sending failed");
    int err = Collect(1, -1, nullptr, Deadline());
    if (err == BS_ERR_CONN_LOST)
        return Lost("the server ended the connection");
    return err;
}

}  // namespace bsapi
