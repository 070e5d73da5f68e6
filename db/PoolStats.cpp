// PoolStats: the pools' figures, read under each pool's own locks, and the allocation timer.
#include "db/PoolStats.h"

#include <atomic>
#include <cstring>
#include <mutex>

#include "db/QvHandlePool.h"

namespace {

std::atomic<long long> g_nAllocs{0};
std::atomic<long long> g_nAllocNanos{0};
std::atomic<long long> g_nAllocMaxNanos{0};

}  // namespace

ws_internal::PoolWaitTimer::~PoolWaitTimer() {
    const long long ns = std::chrono::duration_cast<std::chrono::nanoseconds>(
                             std::chrono::steady_clock::now() - m_start)
                             .count();
    g_nAllocs.fetch_add(1, std::memory_order_relaxed);
    g_nAllocNanos.fetch_add(ns, std::memory_order_relaxed);
    long long max = g_nAllocMaxNanos.load(std::memory_order_relaxed);
    while (ns > max && !g_nAllocMaxNanos.compare_exchange_weak(max, ns)) {
    }
}

// Friend of the pools: walks the map of server pools under its lock and reads each kind's
// counts under the list lock (the order the pools themselves take the locks in).
struct PoolStatsReader {
    static void Read(DbPoolStats& out) {
        std::lock_guard<std::recursive_mutex> lock(g_GrossHandlePool.m_mutexMap);
        for (auto& server : g_GrossHandlePool.m_mapPools) {
            for (int kind = 0; kind < 3; ++kind) {
                CHandlePool* pool = server.second->GetHandlePool(kind);
                if (pool == nullptr)
                    continue;
                {
                    std::lock_guard<std::recursive_mutex> list(pool->m_mutexList);
                    const long long idle = static_cast<long long>(pool->m_lstFree.size());
                    out.idle[kind] += idle;
                    out.inUse[kind] += pool->m_nCreated - idle;
                }
                CDealHandleObj::DeleteHandleObj(pool);
            }
        }
    }
};

void Session_GetPoolStats(DbPoolStats* out) {
    if (out == nullptr)
        return;
    std::memset(out, 0, sizeof(*out));
    PoolStatsReader::Read(*out);
    out->allocs = g_nAllocs.load();
    out->allocSeconds = static_cast<double>(g_nAllocNanos.load()) / 1e9;
    out->allocMaxSeconds = static_cast<double>(g_nAllocMaxNanos.load()) / 1e9;
}
