// Lifecycle: the stopping flag and the condition that wakes event-stream handlers at shutdown.
#include "host/Lifecycle.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>

namespace wh {

namespace {

std::atomic<bool> g_bStopping{false};  // read without the lock on every write
std::atomic<bool> g_bStopped{false};
std::mutex g_mutexStop;  // guards the waits below together with g_bStopping and g_bStopped
std::condition_variable g_condStop;

}  // namespace

void BeginStop() {
    {
        std::lock_guard<std::mutex> lock(g_mutexStop);
        g_bStopping.store(true);
    }
    g_condStop.notify_all();
}

int IsStopping() {
    return g_bStopping.load() ? 1 : 0;
}

int WaitStopping(int milliseconds) {
    if (milliseconds < 0)
        milliseconds = 0;
    std::unique_lock<std::mutex> lock(g_mutexStop);
    bool stopped = g_condStop.wait_for(lock, std::chrono::milliseconds(milliseconds),
                                       [] { return g_bStopping.load(); });
    return stopped ? 1 : 0;
}

void EndStop() {
    {
        std::lock_guard<std::mutex> lock(g_mutexStop);
        g_bStopped.store(true);
    }
    g_condStop.notify_all();
}

bool WaitStopped(int milliseconds) {
    std::unique_lock<std::mutex> lock(g_mutexStop);
    return g_condStop.wait_for(lock, std::chrono::milliseconds(milliseconds),
                               [] { return g_bStopped.load(); });
}

}  // namespace wh
