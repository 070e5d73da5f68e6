// The library's clock seam: time(nullptr) unless a test has installed its own clock.
#include "common/Clock.h"

#include <atomic>

namespace tarn {

namespace {
std::atomic<time_t (*)()> g_clockFn{nullptr};
}  // namespace

time_t ClockNow() {
    time_t (*fn)() = g_clockFn.load(std::memory_order_acquire);
    return fn != nullptr ? fn() : ::time(nullptr);
}

void SetClockForTest(time_t (*fn)()) {
    g_clockFn.store(fn, std::memory_order_release);
}

}  // namespace tarn
