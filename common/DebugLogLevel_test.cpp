// Tests of the logger's level setting: this binary writes middle.ini with loglevel=10 into its
// private installation before anything logs (the logger reads its settings once per process).
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "common/Clock.h"
#include "common/DebugLog.h"
#include "tests/support/TestTree.h"

namespace {

using _qvcomm::CDebugLog;

time_t Pinned() {
    return 1709622489;
}  // 2024-03-05 07:08:09 UTC

TEST(DebugLogLevelTest, LevelTenKeepsZeroAndTenAndDropsEleven) {
    std::string root = ws_test::InstallRoot();
    ASSERT_FALSE(root.empty()) << "run through the relocating main";
    ws_test::WriteFile(root + "/middle/Conf/middle.ini", "[main]\nloglevel = 10\n");
    ::setenv("TZ", "UTC", 1);
    ::tzset();
    tarn::SetClockForTest(Pinned);

    std::fflush(stdout);
    ::testing::internal::CaptureStdout();
    CDebugLog* log = CDebugLog::get_instance();
    std::string banner = ::testing::internal::GetCapturedStdout();
    EXPECT_EQ(banner, "m_szFileDir:" + root + "/middle/log/ LogLvel:10\r\n");
    EXPECT_EQ(log->GetLevel(), 10);

    CDebugLog::WriteTimeLog("handle.log", 0, "zero");
    CDebugLog::WriteTimeLog("handle.log", 10, "ten");
    CDebugLog::WriteTimeLog("handle.log", 11, "eleven");
    CDebugLog::WriteTimeFmtLog("handle.log", 10, "fmt %d", 10);
    CDebugLog::WriteTimeFmtLog("handle.log", 11, "fmt %d", 11);
    EXPECT_EQ(ws_test::ReadFile(root + "/middle/log/handle20240305.log"),
              "2024-03-05 07:08:09 zero\n2024-03-05 07:08:09 ten\n2024-03-05 07:08:09 fmt 10\n");

    // A changed file takes effect only after a restart.
    ws_test::WriteFile(root + "/middle/Conf/middle.ini", "[main]\nloglevel=0\n");
    CDebugLog::WriteTimeLog("later.log", 10, "still ten");
    EXPECT_TRUE(ws_test::FileExists(root + "/middle/log/later20240305.log"));
    tarn::SetClockForTest(nullptr);
}

}  // namespace
