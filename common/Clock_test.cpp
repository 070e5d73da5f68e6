// Tests of the clock seam: a test clock may be swapped while other threads read it (replacing
// and restoring it is tested with TimeFace::GetCurrent in TimeFace_test.cpp).
#include "common/Clock.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "common/TimeFace.h"

namespace {

time_t ClockA() {
    return 1000;
}
time_t ClockB() {
    return 2000;
}

TEST(ClockTest, SwappingWhileOtherThreadsReadIsSafe) {
    std::atomic<bool> stop{false};
    std::atomic<int> bad{0};
    std::vector<std::thread> readers;
    tarn::SetClockForTest(ClockA);
    for (int i = 0; i < 4; ++i) {
        readers.emplace_back([&] {
            while (!stop.load()) {
                time_t t = tarn::TimeFace::GetCurrent().GetTime();
                if (t != 1000 && t != 2000)
                    bad.fetch_add(1);
            }
        });
    }
    for (int i = 0; i < 20000; ++i)
        tarn::SetClockForTest(i % 2 ? ClockA : ClockB);
    stop.store(true);
    for (auto& t : readers)
        t.join();
    tarn::SetClockForTest(nullptr);
    EXPECT_EQ(bad.load(), 0);
}

}  // namespace
