// Tests of the logger in a private installation without middle.ini (level 0): dated file names,
// the level filter, the formatted-length limit, line format and file-object sharing. The date is
// pinned with the test clock.
#include "common/DebugLog.h"

#include <gtest/gtest.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <string>

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

TEST_F(DebugLogTest, SettingsComeFromTheInstallation) {
    CDebugLog* log = CDebugLog::get_instance();
    ASSERT_NE(log, nullptr);
    EXPECT_EQ(log, CDebugLog::get_instance());
    EXPECT_EQ(log->GetLevel(), 0);  // no middle.ini
    EXPECT_EQ(log->GetFileDir(), m_strLogDir);
}

TEST_F(DebugLogTest, DatedFileAndLineFormat) {
    CDebugLog::WriteTimeLog("session.log", 0, "text");
    CDebugLog::WriteTimeLog("session.log", 0, nullptr);
    EXPECT_EQ(ws_test::ReadFile(m_strLogDir + "session20240305.log"),
              "2024-03-05 07:08:09 text\n2024-03-05 07:08:09 \n");
    EXPECT_EQ(CDebugLog::get_instance()->GetFileRel("session.log")->GetTimeFilePathName(),
              m_strLogDir + "session20240305.log");
}

TEST_F(DebugLogTest, NamesWithoutExtensionAndWithDirectories) {
    CDebugLog::WriteTimeLog("noext", 0, "a");
    EXPECT_EQ(ws_test::ReadFile(m_strLogDir + "noext20240305"), "2024-03-05 07:08:09 a\n");
    CDebugLog::WriteTimeLog("x.y.log", 0, "b");  // split at the last "."
    EXPECT_TRUE(ws_test::FileExists(m_strLogDir + "x.y20240305.log"));

    std::string dir = m_strRoot + "/elsewhere/";
    ASSERT_TRUE(ws_test::MakeDirs(dir));
    CDebugLog::WriteTimeLog(dir + "b.txt", 0, "c");
    EXPECT_EQ(ws_test::ReadFile(dir + "b20240305.txt"), "2024-03-05 07:08:09 c\n");
    // Objects are keyed by file name only: "b.txt" now shares the first one's directory.
    CDebugLog::WriteTimeLog("b.txt", 0, "d");
    EXPECT_EQ(ws_test::ReadFile(dir + "b20240305.txt"),
              "2024-03-05 07:08:09 c\n2024-03-05 07:08:09 d\n");
    EXPECT_FALSE(ws_test::FileExists(m_strLogDir + "b20240305.txt"));
}

TEST_F(DebugLogTest, ANewDayStartsANewFile) {
    CDebugLog::WriteTimeLog("day.log", 0, "first");
    tarn::SetClockForTest([]() -> time_t { return 1709622489 + 86400; });
    CDebugLog::WriteTimeLog("day.log", 0, "second");
    EXPECT_EQ(ws_test::ReadFile(m_strLogDir + "day20240305.log"), "2024-03-05 07:08:09 first\n");
    EXPECT_EQ(ws_test::ReadFile(m_strLogDir + "day20240306.log"), "2024-03-06 07:08:09 second\n");
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
    EXPECT_EQ(_qvcomm::CDebugLog::get_instance()->GetLevel(), 0);
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

int Measure(const char* format, ...) {
    va_list args;
    va_start(args, format);
    int n = _qvcomm::_vscprintf(format, args);
    va_end(args);
    return n;
}

TEST_F(DebugLogTest, VscprintfCountsWithoutTheZero) {
    EXPECT_EQ(Measure("%s-%d", "abc", 42), 6);
    EXPECT_EQ(Measure(""), 0);
}

}  // namespace
