// The embedded engine's message queues: one table of messages per server file, pops that take one
// message atomically, and blocking pops that sleep on a futex in a shared mapped file.
//
// Wake-up: "queues.wake" beside the queue file holds 1024 32-bit counters, mapped shared by every
// process. A push increments the counter of its queue's slot (by a hash of the queue name) and
// wakes the futex; a waiting pop reads the counter before it looks for a message, and sleeps only
// while the counter still holds that value, so no push between the look and the sleep is missed.
#include <fcntl.h>
#include <linux/futex.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <chrono>
#include <climits>
#include <ctime>
#include <map>
#include <mutex>

#include "bsapi/Location.h"
#include "bsapi/sqlite/SqliteEngine.h"

namespace bsapi {

using tarn::VariableData;

const char* QueueSchema() {
    return "CREATE TABLE IF NOT EXISTS bs_queue(id INTEGER PRIMARY KEY AUTOINCREMENT,"
           " name TEXT NOT NULL UNIQUE);"
           "CREATE TABLE IF NOT EXISTS bs_msg(id INTEGER PRIMARY KEY AUTOINCREMENT,"
           " queue INTEGER NOT NULL, prio INTEGER NOT NULL, name TEXT NOT NULL,"
           " ctime INTEGER NOT NULL, tag INTEGER NOT NULL, value);"
           "CREATE INDEX IF NOT EXISTS bs_msg_order ON bs_msg(queue, prio DESC, id);";
}

namespace {

const int kSlots = 1024;

// Never destroyed, like the handle registry: a thread still popping at exit keeps its mapping.
std::mutex& g_mtxWake = *new std::mutex;  // guards g_mapWake
// wake file path -> mapping (kept for the process)
std::map<std::string, uint32_t*>& g_mapWake = *new std::map<std::string, uint32_t*>;

uint32_t* WakeCounters(const std::string& path) {
    std::lock_guard<std::mutex> lock(g_mtxWake);
    auto it = g_mapWake.find(path);
    if (it != g_mapWake.end())
        return it->second;
    int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0660);
    if (fd < 0)
        return nullptr;
    struct stat st;
    size_t size = kSlots * sizeof(uint32_t);
    if (::fstat(fd, &st) != 0 ||
        (static_cast<size_t>(st.st_size) < size && ::ftruncate(fd, size) != 0)) {
        ::close(fd);
        return nullptr;
    }
    void* p = ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    ::close(fd);
    if (p == MAP_FAILED)
        return nullptr;
    uint32_t* counters = static_cast<uint32_t*>(p);
    g_mapWake[path] = counters;
    return counters;
}

uint32_t SlotOf(const std::string& name) {
    uint32_t h = 2166136261u;  // FNV-1a
    for (unsigned char c : name)
        h = (h ^ c) * 16777619u;
    return h % kSlots;
}

enum { Q_FIND, Q_CREATE, Q_PUSH, Q_TAKE, Q_PEEK, Q_EXISTS, Q_COUNT, Q_CLEAR, Q_DROP, Q_STATE };
const char* const kSql[] = {
    "SELECT id FROM bs_queue WHERE name=?1",
    "INSERT INTO bs_queue(name) VALUES(?1) ON CONFLICT(name) DO NOTHING",
    "INSERT INTO bs_msg(queue, prio, name, ctime, tag, value) SELECT ?1, ?2, ?3, ?4, ?5, ?6"
    " WHERE EXISTS(SELECT 1 FROM bs_queue WHERE id=?1)",
    "DELETE FROM bs_msg WHERE id=(SELECT id FROM bs_msg WHERE queue=?1 ORDER BY prio DESC, id"
    " LIMIT 1) RETURNING id, name, ctime, tag, value",
    "SELECT id, name, ctime, tag, value FROM bs_msg WHERE queue=?1 ORDER BY prio DESC, id LIMIT 1",
    "SELECT 1 FROM bs_queue WHERE id=?1",
    "SELECT count(*) FROM bs_msg WHERE queue=?1",
    "DELETE FROM bs_msg WHERE queue=?1",
    "DELETE FROM bs_queue WHERE id=?1",
    "SELECT EXISTS(SELECT 1 FROM bs_queue WHERE id=?1), EXISTS(SELECT 1 FROM bs_msg WHERE "
    "queue=?1)",
};

class CSqliteQueue : public CQueueSession {
public:
    int KeepLive() override { return m_pConn ? m_pConn->KeepLive() : BS_ERR_CONN_CLOSED; }

    int Open(const CServerAddr& server, const std::string& queue, bool create) override {
        std::string file = QueueFilePath(server);
        std::shared_ptr<CSqliteConn> conn = m_pConn;
        if (!conn || conn->Path() != file) {
            if (!FileExists(file) && !create)
                return BS_ERR_NO_QUEUE;
            if (MakeDirs(ServerDir(server)) != BS_OK)
                return BS_ERR_IO;
            int rc = CSqliteConn::Open(file, true, QueueSchema(), conn);
            if (rc != BS_OK)
                return rc;
        }
        int rc = BS_OK;
        if (create) {
            sqlite3_stmt* st = conn->Stmt(Q_CREATE, kSql[Q_CREATE], rc);
            if (st == nullptr)
                return rc;
            BindText(st, 1, queue);
            rc = StepDone(st, conn->Db());
            if (rc != BS_OK)
                return rc;
        }
        sqlite3_stmt* st = conn->Stmt(Q_FIND, kSql[Q_FIND], rc);
        if (st == nullptr)
            return rc;
        BindText(st, 1, queue);
        int s = sqlite3_step(st);
        long long id = s == SQLITE_ROW ? sqlite3_column_int64(st, 0) : 0;
        sqlite3_reset(st);
        if (s == SQLITE_DONE)
            return BS_ERR_NO_QUEUE;
        if (s != SQLITE_ROW)
            return MapSqlite(s, conn->Db());
        uint32_t* counters = WakeCounters(ServerDir(server) + "/queues.wake");
        if (counters == nullptr)
            return BS_ERR_IO;
        m_pConn = conn;
        m_llQueue = id;
        m_pCounter = counters + SlotOf(queue);
        return BS_OK;
    }

    int Push(const VariableData& value, const std::string& name, unsigned char priority,
             unsigned long long& id) override {
        int rc = BS_OK;
        sqlite3_stmt* st = m_pConn->Stmt(Q_PUSH, kSql[Q_PUSH], rc);
        if (st == nullptr)
            return rc;
        sqlite3_bind_int64(st, 1, m_llQueue);
        sqlite3_bind_int(st, 2, priority);
        BindText(st, 3, name);
        sqlite3_bind_int64(st, 4, static_cast<long long>(::time(nullptr)));
        sqlite3_bind_int(st, 5, value.GetType());
        rc = BindValue(st, 6, value);
        if (rc == BS_OK)
            rc = StepDone(st, m_pConn->Db());
        if (rc != BS_OK)
            return rc;
        if (sqlite3_changes(m_pConn->Db()) == 0)
            return BS_ERR_NO_QUEUE;
        id = static_cast<unsigned long long>(sqlite3_last_insert_rowid(m_pConn->Db()));
        Wake();
        return BS_OK;
    }

    int Pop(CMessage& message, unsigned int timeoutMs, bool peek) override {
        auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
        for (;;) {
            uint32_t seen = __atomic_load_n(m_pCounter, __ATOMIC_ACQUIRE);
            int rc = TryPop(message, peek);
            if (rc != BS_ERR_TIMEOUT)
                return rc;
            auto left = deadline - std::chrono::steady_clock::now();
            if (left <= std::chrono::steady_clock::duration::zero())
                return BS_ERR_TIMEOUT;
            auto ns = std::chrono::duration_cast<std::chrono::nanoseconds>(left).count();
            struct timespec ts;
            ts.tv_sec = static_cast<time_t>(ns / 1000000000);
            ts.tv_nsec = static_cast<long>(ns % 1000000000);
            ::syscall(SYS_futex, m_pCounter, FUTEX_WAIT, seen, &ts, nullptr, 0);
        }
    }

    int Length(unsigned long long& length) override {
        int rc = CheckQueue();
        if (rc != BS_OK)
            return rc;
        sqlite3_stmt* st = m_pConn->Stmt(Q_COUNT, kSql[Q_COUNT], rc);
        if (st == nullptr)
            return rc;
        sqlite3_bind_int64(st, 1, m_llQueue);
        int s = sqlite3_step(st);
        if (s == SQLITE_ROW)
            length = static_cast<unsigned long long>(sqlite3_column_int64(st, 0));
        sqlite3_reset(st);
        return s == SQLITE_ROW ? BS_OK : MapSqlite(s, m_pConn->Db());
    }

    int Clear() override {
        int rc = CheckQueue();
        if (rc != BS_OK)
            return rc;
        sqlite3_stmt* st = m_pConn->Stmt(Q_CLEAR, kSql[Q_CLEAR], rc);
        if (st == nullptr)
            return rc;
        sqlite3_bind_int64(st, 1, m_llQueue);
        return StepDone(st, m_pConn->Db());
    }

    int Delete() override {
        CWriteScope scope(*m_pConn);
        int rc = scope.Begin();
        if (rc != BS_OK)
            return rc;
        for (int slot : {Q_CLEAR, Q_DROP}) {
            sqlite3_stmt* st = m_pConn->Stmt(slot, kSql[slot], rc);
            if (st == nullptr)
                return scope.Finish(rc);
            sqlite3_bind_int64(st, 1, m_llQueue);
            rc = StepDone(st, m_pConn->Db());
            if (rc != BS_OK)
                return scope.Finish(rc);
        }
        rc = sqlite3_changes(m_pConn->Db()) > 0 ? BS_OK : BS_ERR_NO_QUEUE;
        rc = scope.Finish(rc);
        if (rc == BS_OK)
            Wake();  // waiting pops learn that the queue is gone
        return rc;
    }

private:
    void Wake() {
        __atomic_add_fetch(m_pCounter, 1, __ATOMIC_RELEASE);
        ::syscall(SYS_futex, m_pCounter, FUTEX_WAKE, INT_MAX, nullptr, nullptr, 0);
    }

    int CheckQueue() {
        int rc = BS_OK;
        sqlite3_stmt* st = m_pConn->Stmt(Q_EXISTS, kSql[Q_EXISTS], rc);
        if (st == nullptr)
            return rc;
        sqlite3_bind_int64(st, 1, m_llQueue);
        int s = sqlite3_step(st);
        sqlite3_reset(st);
        if (s == SQLITE_ROW)
            return BS_OK;
        return s == SQLITE_DONE ? BS_ERR_NO_QUEUE : MapSqlite(s, m_pConn->Db());
    }

    // One message, or BS_ERR_TIMEOUT for an empty queue. Whether there is anything to take is
    // asked first with a read, which takes no lock that a pusher waits for: a pop that finds the
    // queue empty (every blocking pop before it sleeps) never holds up the push it waits for.
    int TryPop(CMessage& message, bool peek) {
        int rc = BS_OK;
        sqlite3_stmt* st = m_pConn->Stmt(Q_STATE, kSql[Q_STATE], rc);
        if (st == nullptr)
            return rc;
        sqlite3_bind_int64(st, 1, m_llQueue);
        int s = sqlite3_step(st);
        const bool queueExists = s == SQLITE_ROW && sqlite3_column_int(st, 0) != 0;
        const bool hasMessage = s == SQLITE_ROW && sqlite3_column_int(st, 1) != 0;
        sqlite3_reset(st);
        if (s != SQLITE_ROW)
            return MapSqlite(s, m_pConn->Db());
        if (!queueExists)
            return BS_ERR_NO_QUEUE;
        if (!hasMessage)
            return BS_ERR_TIMEOUT;
        int slot = peek ? Q_PEEK : Q_TAKE;
        st = m_pConn->Stmt(slot, kSql[slot], rc);
        if (st == nullptr)
            return rc;
        sqlite3_bind_int64(st, 1, m_llQueue);
        s = sqlite3_step(st);
        if (s == SQLITE_ROW) {
            message.m_ullId = static_cast<unsigned long long>(sqlite3_column_int64(st, 0));
            message.m_strName = ColumnText(st, 1);
            message.m_lTime = static_cast<long>(sqlite3_column_int64(st, 2));
            ColumnValue(st, 4, static_cast<unsigned char>(sqlite3_column_int(st, 3)),
                        message.m_varValue, true);
            return StepDone(st, m_pConn->Db());  // finishes the delete
        }
        sqlite3_reset(st);
        if (s != SQLITE_DONE)
            return MapSqlite(s, m_pConn->Db());
        // Another pop took the message between the look and the take.
        return BS_ERR_TIMEOUT;
    }

    std::shared_ptr<CSqliteConn> m_pConn;
    long long m_llQueue = 0;
    uint32_t* m_pCounter = nullptr;  // this queue's wake counter in the shared mapping
};

}  // namespace

std::unique_ptr<CQueueSession> NewSqliteQueue() {
    return std::make_unique<CSqliteQueue>();
}

}  // namespace bsapi
