// Tests of the logger under concurrency: many threads make the first call at once and then write
// to shared and separate logs; every line must arrive whole and exactly once.
#include <gtest/gtest.h>

#include <atomic>
#include <map>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "common/DebugLog.h"
#include "tests/support/TestTree.h"

namespace {

using _qvcomm::CDebugLog;

TEST(DebugLogThreadsTest, ConcurrentFirstUseAndWrites) {
    std::string root = ws_test::InstallRoot();
    ASSERT_FALSE(root.empty()) << "run through the relocating main";
    const int kThreads = 8;
    const int kLines = 200;
    std::atomic<bool> go{false};
    std::vector<CDebugLog*> instances(kThreads, nullptr);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            while (!go.load()) {
            }
            instances[t] = CDebugLog::get_instance();
            std::string own = "own" + std::to_string(t) + ".log";
            for (int i = 0; i < kLines; ++i) {
                CDebugLog::WriteTimeFmtLog("shared.log", 0, "t%d line %d end", t, i);
                CDebugLog::WriteTimeLog(own, 0, "x");
            }
        });
    }
    go.store(true);
    for (auto& th : threads)
        th.join();
    for (CDebugLog* p : instances)
        EXPECT_EQ(p, instances[0]);

    CDebugLog* log = CDebugLog::get_instance();
    std::string shared = ws_test::ReadFile(log->GetFileRel("shared.log")->GetTimeFilePathName());
    std::map<std::string, int> seen;
    std::stringstream ss(shared);
    std::string line;
    int count = 0;
    while (std::getline(ss, line)) {
        ++count;
        // "YYYY-MM-DD HH:MM:SS tN line I end"
        ASSERT_GE(line.size(), 20u);
        std::string text = line.substr(20);
        ASSERT_EQ(text.substr(text.size() - 4), " end") << line;
        ++seen[text];
    }
    EXPECT_EQ(count, kThreads * kLines);
    EXPECT_EQ(seen.size(), static_cast<size_t>(kThreads * kLines));
    for (int t = 0; t < kThreads; ++t) {
        std::string own = ws_test::ReadFile(
            log->GetFileRel("own" + std::to_string(t) + ".log")->GetTimeFilePathName());
        EXPECT_EQ(own.size(), static_cast<size_t>(kLines) * 22u);
    }
}

}  // namespace
