// Idle connections of the networked engine: a handle that closes leaves its connection (with its
// prepared statements) for the next open with the same schema and settings, so that opening a
// handle costs no connect. At most four wait per key; the rest are closed.
//
// A forked child must never speak on its parent's connections: after a fork the pool of the
// parent is abandoned unclosed (closing would end the parent's sessions on the server).
#include <unistd.h>

#include <map>
#include <mutex>

#include "bsapi/postgres/PgConn.h"

namespace bsapi {

namespace {

const size_t kIdlePerKey = 4;

// Never destroyed: handles may close while the process runs its exit-time destructors.
std::mutex& g_mtxIdle = *new std::mutex;  // guards g_mapIdle and g_pidIdle
std::multimap<std::string, CPgConn*>& g_mapIdle = *new std::multimap<std::string, CPgConn*>;
pid_t g_pidIdle = 0;  // the process the idle connections belong to

// Under g_mtxIdle: forgets the connections of a parent process.
void ForgetParent() {
    if (g_pidIdle != ::getpid()) {
        g_mapIdle.clear();  // not closed, on purpose
        g_pidIdle = ::getpid();
    }
}

}  // namespace

CPgConn* PgTakeIdle(const std::string& key) {
    for (;;) {
        CPgConn* conn = nullptr;
        {
            std::lock_guard<std::mutex> lock(g_mtxIdle);
            ForgetParent();
            auto it = g_mapIdle.find(key);
            if (it == g_mapIdle.end())
                return nullptr;
            conn = it->second;
            g_mapIdle.erase(it);
        }
        if (conn->KeepLive() == BS_OK)
            return conn;
        delete conn;  // the server ended it while it waited
    }
}

void PgRecycle(CPgConn* conn) {
    if (!conn->PoolKey().empty() && conn->Reusable()) {
        std::lock_guard<std::mutex> lock(g_mtxIdle);
        ForgetParent();
        if (g_mapIdle.count(conn->PoolKey()) < kIdlePerKey) {
            g_mapIdle.emplace(conn->PoolKey(), conn);
            return;
        }
    }
    delete conn;
}

}  // namespace bsapi
