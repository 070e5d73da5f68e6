// PoolStats: figures of the database handle pools for the host's monitoring page, and the timer
// the pools use to measure how long getting a handle takes.
#pragma once

#include <chrono>

#include "common/Export.h"

// Summed over every server: handles lent out and handles waiting in the free lists, per kind
// (0 tree, 1 table, 2 queue); the number of handle allocations, their summed and longest time
// in seconds (a wait for a free handle included).
struct DbPoolStats {
    long long inUse[3];
    long long idle[3];
    long long allocs;
    double allocSeconds;
    double allocMaxSeconds;
};
WS_EXTERN_C WS_API void Session_GetPoolStats(DbPoolStats* out);

namespace ws_internal {

// Lives for one CHandlePool::Alloc and adds its time to the figures above.
class PoolWaitTimer {
public:
    PoolWaitTimer() : m_start(std::chrono::steady_clock::now()) {}
    ~PoolWaitTimer();

private:
    std::chrono::steady_clock::time_point m_start;
};

}  // namespace ws_internal
