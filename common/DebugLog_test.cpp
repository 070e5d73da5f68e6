// Tests of the logger in a private installation without middle.ini (level 0): concurrent first
// use and writes, dated file names, the level filter, the formatted-length limit, line format and
// file-object sharing. The date is pinned with the test clock.
#include "common/DebugLog.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "common/Clock.h"
#include "tests/support/TestTree.h"

namespace {

using _qvcomm::CDebugLog;

time_t Pinned() {
    return 1709622489;
}  // 2024-03-05 07:08:09 UTC

class DebugLogTest : public ::testing::Test {
protected:
    std::string m_strRoot = ws_test::InstallRoot();
    std::string m_strLogDir = m_strRoot + "/middle/log/";

    void SetUp() override {
        ASSERT_FALSE(m_strRoot.empty()) << "run through the relocating main";
        ::setenv("TZ", "UTC", 1);
        ::tzset();
        tarn::SetClockForTest(Pinned);
    }
    void TearDown() override { tarn::SetClockForTest(nullptr); }
};

// First in the file: many threads make the first call at once and then write to shared and
// separate logs; every line must arrive whole and exactly once.
TEST_F(DebugLogTest, ConcurrentFirstUseAndWrites) {
    const int kThreads = 8, kLines = 200;
    std::atomic<bool> go{false};
    std::vector<CDebugLog*> instances(kThreads, nullptr);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            while (!go.load()) {
            }
            instances[t] = CDebugLog::get_instance();
            for (int i = 0; i < kLines; ++i) {
                CDebugLog::WriteTimeFmtLog("shared.log", 0, "t%d line %d end", t, i);
                CDebugLog::WriteTimeLog("own" + std::to_string(t) + ".log", 0, "x");
            }
        });
    }
    go.store(true);
    for (auto& th : threads)
        th.join();
    for (CDebugLog* p : instances)
        EXPECT_EQ(p, instances[0]);
    std::map<std::string, int> seen;
    std::stringstream shared(ws_test::ReadFile(m_strLogDir + "shared20240305.log"));
    int count = 0;
    for (std::string line; std::getline(shared, line); ++count) {
        ASSERT_EQ(line.substr(0, 20), "2024-03-05 07:08:09 ") << line;
        ASSERT_EQ(line.substr(line.size() - 4), " end") << line;
        ++seen[line];
    }
    EXPECT_EQ(count, kThreads * kLines);
    EXPECT_EQ(seen.size(), static_cast<size_t>(kThreads * kLines));
    for (int t = 0; t < kThreads; ++t) {
        const std::string own = m_strLogDir + "own" + std::to_string(t) + "20240305.log";
        EXPECT_EQ(ws_test::ReadFile(own).size(), static_cast<size_t>(kLines) * 22u);
    }
}

TEST_F(DebugLogTest, DatedFileNamesLineFormatAndSharedObjects) {
    CDebugLog::WriteTimeLog("session.log", 0, "text");
    CDebugLog::WriteTimeLog("session.log", 0, nullptr);
    EXPECT_EQ(ws_test::ReadFile(m_strLogDir + "session20240305.log"),
              "2024-03-05 07:08:09 text\n2024-03-05 07:08:09 \n");
    CDebugLog::WriteTimeLog("noext", 0, "a");
    EXPECT_EQ(ws_test::ReadFile(m_strLogDir + "noext20240305"), "2024-03-05 07:08:09 a\n");
    CDebugLog::WriteTimeLog("x.y.log", 0, "b");  // split at the last "."
    EXPECT_TRUE(ws_test::FileExists(m_strLogDir + "x.y20240305.log"));

    std::string dir = m_strRoot + "/elsewhere/";
    ASSERT_TRUE(ws_test::MakeDirs(dir));
    CDebugLog::WriteTimeLog(dir + "b.txt", 0, "c");
    // Objects are keyed by file name only: "b.txt" now shares the first one's directory.
    CDebugLog::WriteTimeLog("b.txt", 0, "d");
    EXPECT_EQ(ws_test::ReadFile(dir + "b20240305.txt"),
              "2024-03-05 07:08:09 c\n2024-03-05 07:08:09 d\n");
    EXPECT_FALSE(ws_test::FileExists(m_strLogDir + "b20240305.txt"));

    // A new day starts a new file.
    tarn::SetClockForTest([]() -> time_t { return 1709622489 + 86400; });
    CDebugLog::WriteTimeLog("session.log", 0, "next day");
    EXPECT_EQ(ws_test::ReadFile(m_strLogDir + "session20240306.log"),
              "2024-03-06 07:08:09 next day\n");
}

TEST_F(DebugLogTest, DefaultLevelKeepsOnlyLevelZeroAndBelow) {
    CDebugLog::WriteTimeLog("lvl.log", 1, "dropped");
    CDebugLog::WriteTimeFmtLog("lvl.log", 10, "%s", "dropped");
    EXPECT_FALSE(ws_test::FileExists(m_strLogDir + "lvl20240305.log"));
    CDebugLog::WriteTimeLog("lvl.log", -1, "kept");
    CDebugLog::WriteTimeFmtLog("lvl.log", 0, "n=%d", 7);
    EXPECT_EQ(ws_test::ReadFile(m_strLogDir + "lvl20240305.log"),
              "2024-03-05 07:08:09 kept\n2024-03-05 07:08:09 n=7\n");
}

TEST_F(DebugLogTest, FormattedLengthLimit) {
    CDebugLog::WriteTimeFmtLog("len.log", 0, "%s", "");
    EXPECT_FALSE(ws_test::FileExists(m_strLogDir + "len20240305.log"));
    std::string ok(4094, 'a');
    std::string tooLong(4095, 'b');
    CDebugLog::WriteTimeFmtLog("len.log", 0, "%s", ok.c_str());
    CDebugLog::WriteTimeFmtLog("len.log", 0, "%s", tooLong.c_str());
    CDebugLog::WriteTimeFmtLog("len.log", 0, "%s%d", std::string(4093, 'c').c_str(), 12);
    EXPECT_EQ(ws_test::ReadFile(m_strLogDir + "len20240305.log"),
              "2024-03-05 07:08:09 " + ok + "\n");
}

TEST_F(DebugLogTest, UnopenableFileCostsOneMessage) {
    std::string name = m_strRoot + "/no/such/dir/x.log";
    CDebugLog::get_instance();  // its start-up message is not part of this capture
    std::fflush(stdout);
    ::testing::internal::CaptureStdout();
    CDebugLog::WriteTimeLog(name, 0, "lost");
    std::string out = ::testing::internal::GetCapturedStdout();
    EXPECT_EQ(out, m_strRoot + "/no/such/dir/x20240305.log open failed\n");
}

}  // namespace
