// The embedded engine's connection: opening with WAL and busy timeout, statements, transactions.
#include "bsapi/sqlite/SqliteConn.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <limits>

namespace bsapi {

namespace {

// Busy timeout in milliseconds: $BSAPI_BUSY_TIMEOUT_MS, default 5000.
int BusyTimeoutMs() {
    const char* env = std::getenv("BSAPI_BUSY_TIMEOUT_MS");
    if (env != nullptr && *env != '\0') {
        long v = std::strtol(env, nullptr, 10);
        if (v >= 0 && v <= 3600000)
            return static_cast<int>(v);
    }
    return 5000;
}

}  // namespace

int MapSqlite(int rc, sqlite3* db) {
    switch (rc & 0xff) {
        case SQLITE_OK:
        case SQLITE_DONE:
        case SQLITE_ROW:
            return BS_OK;
        case SQLITE_BUSY:
        case SQLITE_LOCKED:
            return BS_ERR_BUSY;
        case SQLITE_CONSTRAINT:
            return BS_ERR_CONSTRAINT;
        case SQLITE_NOMEM:
            return BS_ERR_NO_MEMORY;
        case SQLITE_TOOBIG:
            return BS_ERR_TOO_BIG;
        case SQLITE_CORRUPT:
        case SQLITE_NOTADB:
            return BS_ERR_CORRUPT;
        case SQLITE_IOERR:
        case SQLITE_FULL:
        case SQLITE_READONLY:
        case SQLITE_PERM:
        case SQLITE_CANTOPEN:
            return BS_ERR_IO;
        case SQLITE_ERROR:
            if (db != nullptr && std::strstr(sqlite3_errmsg(db), "no such table") != nullptr) {
                return BS_ERR_NO_TABLE;
            }
            if (db != nullptr && std::strstr(sqlite3_errmsg(db), "already exists") != nullptr) {
                return BS_ERR_EXISTS;
            }
            return BS_ERR_INTERNAL;
        default:
            return BS_ERR_INTERNAL;
    }
}

// Waits for a lock held by another connection. Writers here hold the lock for some tens of
// microseconds, so the first waits only yield the processor (any sleep lasts at least the
// system's timer slack, 50 us, which would double a queue's push-to-pop time); then sleeps of
// 10 us doubling up to 1 ms. SQLite's own handler would sleep whole milliseconds from the start.
int CSqliteConn::OnBusy(void* self, int count) {
    CSqliteConn* conn = static_cast<CSqliteConn*>(self);
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    long long ns = now.tv_sec * 1000000000LL + now.tv_nsec;
    if (count == 0)
        conn->m_llBusySinceNs = ns;
    if (ns - conn->m_llBusySinceNs >= conn->m_nBusyTimeoutMs * 1000000LL)
        return 0;
    const int kYields = 100;
    if (count < kYields) {
        ::sched_yield();
    } else {
        const int n = count - kYields;
        ::usleep(static_cast<useconds_t>(n < 7 ? 10 << n : 1000));
    }
    return 1;
}

static long long CtimeNs(const struct stat& st) {
    return static_cast<long long>(st.st_ctim.tv_sec) * 1000000000LL + st.st_ctim.tv_nsec;
}

bool FileExists(const std::string& path) {
    struct stat st;
    return ::stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

CSqliteConn::~CSqliteConn() {
    for (sqlite3_stmt*& st : m_aStmt) {
        if (st != nullptr)
            sqlite3_finalize(st);
        st = nullptr;
    }
    if (m_pDb != nullptr) {
        if (!sqlite3_get_autocommit(m_pDb))
            sqlite3_exec(m_pDb, "ROLLBACK", nullptr, nullptr, nullptr);
        sqlite3_close_v2(m_pDb);
    }
    if (m_nProbeFd >= 0)
        ::close(m_nProbeFd);
}

int CSqliteConn::Open(const std::string& path, bool create, const char* schema,
                      std::shared_ptr<CSqliteConn>& out, bool shared) {
    if (!create && !FileExists(path))
        return BS_ERR_CONN_LOST;
    std::shared_ptr<CSqliteConn> conn(new CSqliteConn());
    conn->m_strPath = path;
    int flags = SQLITE_OPEN_READWRITE | (shared ? SQLITE_OPEN_FULLMUTEX : SQLITE_OPEN_NOMUTEX) |
                (create ? SQLITE_OPEN_CREATE : 0);
    int rc = sqlite3_open_v2(path.c_str(), &conn->m_pDb, flags, nullptr);
    if (rc != SQLITE_OK)
        return MapSqlite(rc, conn->m_pDb);
    sqlite3_extended_result_codes(conn->m_pDb, 0);
    conn->m_nBusyTimeoutMs = BusyTimeoutMs();
    sqlite3_busy_handler(conn->m_pDb, &CSqliteConn::OnBusy, conn.get());
    // WAL lets readers run beside one writer and keeps a crash from damaging the file. Turning a
    // new file to WAL needs it to itself for a moment, and SQLite answers "busy" at once, without
    // the busy handler, when another connection (several first opens of one file race so) holds
    // it then; so this setup waits as the busy handler would, up to the busy timeout.
    int version = 0;
    for (int attempt = 0;; ++attempt) {
        rc = conn->Exec("PRAGMA journal_mode=WAL");
        if (rc == BS_OK)
            rc = conn->Exec("PRAGMA synchronous=NORMAL");
        if (rc == BS_OK)
            rc = conn->UserVersion(version);
        if (rc != BS_ERR_BUSY || !OnBusy(conn.get(), attempt))
            break;
    }
    if (rc != BS_OK)
        return rc;
    if (version == 0) {
        // Another process may be creating the same file: the schema is idempotent and runs under
        // the write lock.
        CWriteScope scope(*conn);
        rc = scope.Begin();
        if (rc == BS_OK)
            rc = conn->Exec(schema);
        if (rc == BS_OK)
            rc = conn->Exec("PRAGMA user_version=1");
        rc = scope.Finish(rc);
        if (rc != BS_OK)
            return rc;
    }
    struct stat st2;
    if (::stat(path.c_str(), &st2) == 0) {
        conn->m_ullDev = st2.st_dev;
        conn->m_ullIno = st2.st_ino;
    }
    conn->m_nProbeFd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    conn->m_llConfirmedCtimeNs = -1;
    out = std::move(conn);
    return BS_OK;
}

sqlite3_stmt* CSqliteConn::Stmt(int slot, const char* sql, int& code) {
    sqlite3_stmt*& st = m_aStmt[slot];
    if (st == nullptr) {
        int rc = sqlite3_prepare_v3(m_pDb, sql, -1, SQLITE_PREPARE_PERSISTENT, &st, nullptr);
        if (rc != SQLITE_OK) {
            code = MapSqlite(rc, m_pDb);
            st = nullptr;
            return nullptr;
        }
    } else {
        sqlite3_reset(st);
        sqlite3_clear_bindings(st);
    }
    code = BS_OK;
    return st;
}

int CSqliteConn::UserVersion(int& version) {
    sqlite3_stmt* st = nullptr;
    if (sqlite3_prepare_v2(m_pDb, "PRAGMA user_version", -1, &st, nullptr) != SQLITE_OK)
        return MapSqlite(sqlite3_errcode(m_pDb), m_pDb);
    int rc = sqlite3_step(st);
    if (rc == SQLITE_ROW)
        version = sqlite3_column_int(st, 0);
    sqlite3_finalize(st);
    return rc == SQLITE_ROW ? BS_OK : MapSqlite(rc, m_pDb);
}

int CSqliteConn::Exec(const char* sql) {
    int rc = sqlite3_exec(m_pDb, sql, nullptr, nullptr, nullptr);
    return rc == SQLITE_OK ? BS_OK : MapSqlite(rc, m_pDb);
}

bool CSqliteConn::InUserTxn() {
    // SQLite ends a transaction by itself on some errors (disk full); follow it.
    if (m_bUserTxn && sqlite3_get_autocommit(m_pDb))
        m_bUserTxn = false;
    return m_bUserTxn;
}

int CSqliteConn::BeginUser() {
    if (InUserTxn())
        return BS_ERR_IN_TRANSACTION;
    int rc = Exec("BEGIN IMMEDIATE");
    if (rc == BS_OK)
        m_bUserTxn = true;
    return rc;
}

int CSqliteConn::CommitUser() {
    if (!InUserTxn())
        return BS_ERR_NO_TRANSACTION;
    int rc = Exec("COMMIT");
    if (rc == BS_OK || sqlite3_get_autocommit(m_pDb))
        m_bUserTxn = false;
    return rc;
}

int CSqliteConn::RollbackUser() {
    if (!InUserTxn())
        return BS_ERR_NO_TRANSACTION;
    for (sqlite3_stmt* st : m_aStmt) {
        if (st != nullptr)
            sqlite3_reset(st);
    }
    int rc = Exec("ROLLBACK");
    m_bUserTxn = !sqlite3_get_autocommit(m_pDb);
    return rc;
}

// The probe first asks the descriptor it keeps on the file (fstat, no path look-up): deleting the
// file or replacing it drops the last link of the inode we hold, and renaming it or linking it
// elsewhere changes the inode's change time. Only when one of those moved since the path was
// last confirmed does the probe look the path up again; that also happens after our own writes,
// which change the time too.
int CSqliteConn::KeepLive() const {
    struct stat st;
    if (m_nProbeFd >= 0 && ::fstat(m_nProbeFd, &st) == 0 && st.st_nlink > 0 &&
        CtimeNs(st) == m_llConfirmedCtimeNs.load(std::memory_order_relaxed))
        return BS_OK;
    if (::stat(m_strPath.c_str(), &st) != 0)
        return BS_ERR_CONN_LOST;
    if (st.st_dev != m_ullDev || st.st_ino != m_ullIno)
        return BS_ERR_CONN_RESET;
    m_llConfirmedCtimeNs.store(CtimeNs(st), std::memory_order_relaxed);
    return BS_OK;
}

CWriteScope::~CWriteScope() {
    if (m_bOpen)
        Finish(BS_ERR_INTERNAL);
}

int CWriteScope::Begin() {
    m_bSavepoint = m_conn.InUserTxn();
    int rc = m_conn.Exec(m_bSavepoint ? "SAVEPOINT bs_op" : "BEGIN IMMEDIATE");
    m_bOpen = rc == BS_OK;
    return rc;
}

int CWriteScope::Finish(int rc) {
    if (!m_bOpen)
        return rc;
    m_bOpen = false;
    if (rc == BS_OK) {
        int c = m_conn.Exec(m_bSavepoint ? "RELEASE bs_op" : "COMMIT");
        if (c == BS_OK)
            return BS_OK;
        rc = c;
    }
    if (m_bSavepoint) {
        m_conn.Exec("ROLLBACK TO bs_op");
        m_conn.Exec("RELEASE bs_op");
    } else if (!sqlite3_get_autocommit(m_conn.Db())) {
        m_conn.Exec("ROLLBACK");
    }
    return rc;
}

int BindValue(sqlite3_stmt* st, int index, const tarn::VariableData& v) {
    using tarn::VariableData;
    int rc = SQLITE_OK;
    switch (v.GetType()) {
        case VariableData::VT_EMPTY:
            rc = sqlite3_bind_null(st, index);
            break;
        case VariableData::VT_STRING: {
            const std::string& s = v.GetText();
            rc = sqlite3_bind_blob64(st, index, s.empty() ? "" : s.data(), s.size(), SQLITE_STATIC);
            break;
        }
        case VariableData::VT_DOUBLE:
        case VariableData::VT_FLOAT:
            rc = sqlite3_bind_double(st, index, static_cast<double>(v));
            break;
        case VariableData::VT_UINT64:
            rc = sqlite3_bind_int64(st, index,
                                    static_cast<sqlite3_int64>(static_cast<unsigned long long>(v)));
            break;
        default:
            rc = sqlite3_bind_int64(st, index, static_cast<long long>(v));
            break;
    }
    return rc == SQLITE_OK ? BS_OK : MapSqlite(rc, nullptr);
}

int BindText(sqlite3_stmt* st, int index, const std::string& text) {
    int rc =
        sqlite3_bind_text64(st, index, text.data(), text.size(), SQLITE_TRANSIENT, SQLITE_UTF8);
    return rc == SQLITE_OK ? BS_OK : MapSqlite(rc, nullptr);
}

std::string ColumnText(sqlite3_stmt* st, int col) {
    const void* p = sqlite3_column_blob(st, col);
    int n = sqlite3_column_bytes(st, col);
    return p == nullptr ? std::string()
                        : std::string(static_cast<const char*>(p), static_cast<size_t>(n));
}

int StepTexts(sqlite3_stmt* st, sqlite3* db, std::list<std::string>& out) {
    std::list<std::string> rows;
    int s;
    while ((s = sqlite3_step(st)) == SQLITE_ROW)
        rows.push_back(ColumnText(st, 0));
    sqlite3_reset(st);
    if (s != SQLITE_DONE)
        return MapSqlite(s, db);
    out.swap(rows);
    return BS_OK;
}

void ColumnValue(sqlite3_stmt* st, int col, unsigned char tag, tarn::VariableData& out,
                 bool nullIsNaN) {
    using tarn::VariableData;
    if (sqlite3_column_type(st, col) == SQLITE_NULL) {
        // SQLite keeps a NaN as NULL; where the tag is stored beside the value it comes back.
        if (nullIsNaN && tag == VariableData::VT_DOUBLE) {
            out = VariableData(std::numeric_limits<double>::quiet_NaN());
        } else if (nullIsNaN && tag == VariableData::VT_FLOAT) {
            out = VariableData(std::numeric_limits<float>::quiet_NaN());
        } else {
            out.Clear();
        }
        return;
    }
    long long i = sqlite3_column_int64(st, col);
    switch (tag) {
        case VariableData::VT_STRING:
            out = VariableData(ColumnText(st, col));
            break;
        case VariableData::VT_INT16:
            out = VariableData(static_cast<short>(i));
            break;
        case VariableData::VT_INT32:
            out = VariableData(static_cast<int>(i));
            break;
        case VariableData::VT_INT64:
            out = VariableData(i);
            break;
        case VariableData::VT_CHAR:
            out = VariableData(static_cast<char>(i));
            break;
        case VariableData::VT_DOUBLE:
            out = VariableData(sqlite3_column_double(st, col));
            break;
        case VariableData::VT_FLOAT:
            out = VariableData(static_cast<float>(sqlite3_column_double(st, col)));
            break;
        case VariableData::VT_TIME:
            out.PutTimeValue(static_cast<long>(i));
            break;
        case VariableData::VT_UINT8:
            out = VariableData(static_cast<unsigned char>(i));
            break;
        case VariableData::VT_UINT32:
            out = VariableData(static_cast<unsigned int>(i));
            break;
        case VariableData::VT_UINT64:
            out = VariableData(static_cast<unsigned long long>(i));
            break;
        default:
            out.Clear();
            break;
    }
}

int StepDone(sqlite3_stmt* st, sqlite3* db) {
    int rc;
    while ((rc = sqlite3_step(st)) == SQLITE_ROW) {
    }
    int code = rc == SQLITE_DONE ? BS_OK : MapSqlite(rc, db);
    sqlite3_reset(st);
    return code;
}

std::string QuoteIdent(const std::string& name) {
    std::string out = "\"";
    for (char c : name) {
        if (c == '"')
            out += '"';
        out += c;
    }
    out += '"';
    return out;
}

}  // namespace bsapi
