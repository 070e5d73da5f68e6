// The process-wide handle pools, g_GrossHandlePool, alone in its translation unit so that the
// library's load-time order of process-wide objects can place it.
#include <atomic>

#include "db/QvHandlePool.h"

CGrossHanlePool g_GrossHandlePool;

// Set right after g_GrossHandlePool is built (objects of one file are built in the order they are
// written). The maintenance thread, started earlier in the load, waits for it before it borrows
// its first handle, which also makes the construction visible to that thread.
std::atomic<bool> g_bGrossHandlePoolBuilt{false};

namespace {
[[maybe_unused]] const bool g_bMarkPoolBuilt = [] {
    g_bGrossHandlePoolBuilt.store(true, std::memory_order_release);
    return true;
}();
}  // namespace
