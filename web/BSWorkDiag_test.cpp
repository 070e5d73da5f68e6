// Tests of the CBSWork request diagnostics: session cookie, Last-Event-ID, the trace switch
// (found through a backslash in the program's path only), the trace lines and the timing log.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/TestTree.h"
#include "web/BSWork.h"

namespace {

// When started as the child of DiagSwitchFollowsBackslashPath, report what the running copy
// sees and leave before any test runs.
const bool g_bChildReported = [] {
    if (std::getenv("WS_DIAG_CHILD") == nullptr) {
        return false;
    }
    CBSWork work;
    std::printf("%s\n%d\n", work.GetFullHeadLogPath().c_str(), work.IsNeedHistoryTest());
    std::fflush(stdout);
    std::_Exit(0);
}();

// The lines of `text` with their leading "YYYY-MM-DD hh:mm:ss" time stamp checked and cut off;
// a line without one is returned whole, prefixed with "BAD:".
std::vector<std::string> LinesAfterTime(const std::string& text) {
    static const std::regex stamp(R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d)");
    std::vector<std::string> lines;
    std::istringstream in(text);
    std::string line;
    while (std::getline(in, line)) {
        const bool ok = line.size() >= 19 && std::regex_match(line.substr(0, 19), stamp);
        lines.push_back(ok ? line.substr(19) : "BAD:" + line);
    }
    return lines;
}

class BSWorkDiagTest : public ::testing::Test {
protected:
    CBSWork work;
    st_wh_head head;
    st_wh_resp resp;
    st_wh_info info;
    ws_test::TempTree tree{"bswork_diag"};
    void SetUp() override {
        info.head = &head;
        info.resp = &resp;
    }
};

// The cookie rule itself is tested in session/CookieRule_test.cpp; here the name asked for.
TEST_F(BSWorkDiagTest, SessionCookieAndLastEventId) {
    head.cookie = "qv_lan=en; qvsessionid=abc";
    EXPECT_EQ(work.CheckQvSession(&info), "abc");
    head.cookie = "qv_lan=en";
    EXPECT_EQ(work.CheckQvSession(&info), "");
    EXPECT_EQ(work.CheckQvSession(nullptr), "");

    EXPECT_EQ(work.CheckChunkLastEventId(&info), "");
    resp.headers["last-event-id"] = "7";
    EXPECT_EQ(work.CheckChunkLastEventId(&info), "");  // names match byte for byte
    resp.headers["Last-Event-ID"] = "42";
    EXPECT_EQ(work.CheckChunkLastEventId(&info), "42");
    EXPECT_EQ(work.CheckChunkLastEventId(nullptr), "");
}

TEST_F(BSWorkDiagTest, DiagSwitchFollowsBackslashPath) {
    // Kept on purpose: only a backslash separates, so this program's own path gives "" and
    // the switch file would be "/webtest.ini".
    EXPECT_EQ(work.GetFullHeadLogPath(), "");
    if (!ws_test::FileExists("/webtest.ini")) {
        EXPECT_EQ(work.IsNeedHistoryTest(), 0);
    }
    // A copy of this program whose file name holds a backslash: the text before it is the
    // directory, and "webtest.ini" is read from there.
    const std::string dir = tree.Path("trace");
    ASSERT_TRUE(ws_test::MakeDirs(dir));
    const std::string copy = tree.Path("trace\\prog");
    ASSERT_TRUE(ws_test::CopyExecutable(ws_test::SelfExe(), copy));
    struct Case {
        const char* ini;  // nullptr: no file
        const char* want;
    } cases[] = {
        {"[main]\nfullhead=3\n", "3"},
        {"[main]\nfullhead=0\n", "0"},
        {"[main]\nfullhead=\n", "0"},
        {"[other]\nfullhead=1\n", "0"},
        {nullptr, "0"},
    };
    ::setenv("WS_DIAG_CHILD", "1", 1);
    for (const Case& c : cases) {
        std::remove((dir + "/webtest.ini").c_str());
        if (c.ini)
            ws_test::WriteFile(dir + "/webtest.ini", c.ini);
        int status = -1;
        const std::string out = ws_test::RunAndCapture(copy, {}, &status);
        EXPECT_EQ(status, 0);
        EXPECT_EQ(out, dir + "\n" + c.want + "\n") << (c.ini ? c.ini : "(none)");
    }
    ::unsetenv("WS_DIAG_CHILD");
}

TEST_F(BSWorkDiagTest, TraceLines) {
    const std::string path = tree.Path("fullhead.log");
    struct Case {
        const char *first, *second, *third, *tail;
    } cases[] = {
        {"hdoc/x", "a=1", "b=2", "hdoc/x?a=1&b=2"},
        {"hdoc/x", "", "b=2", "hdoc/x?b=2"},
        {"hdoc/x", "a=1", "", "hdoc/x?a=1"},
        {"hdoc/x", "", "", "hdoc/x?"},
        {"", "a=1", "b=2", "a=1&b=2"},
        {"", "", "", ""},
    };
    std::vector<std::string> want;
    for (const Case& c : cases) {
        work.WriteTestHead(path, c.first, c.second, c.third);
        want.push_back(std::string("    ") + c.tail);
    }
    const std::string text = ws_test::ReadFile(path);
    EXPECT_EQ(LinesAfterTime(text), want) << text;
    ASSERT_FALSE(text.empty());
    EXPECT_EQ(text.back(), '\n');
    work.WriteTestHead(tree.Path("missing/dir/x.log"), "a", "b", "c");  // skipped silently
    EXPECT_FALSE(ws_test::FileExists(tree.Path("missing")));
}

TEST_F(BSWorkDiagTest, TimingLogUnderDriveLetterDirectory) {
    char old[4096];
    ASSERT_NE(::getcwd(old, sizeof(old)), nullptr);
    ASSERT_EQ(::chdir(tree.Root().c_str()), 0);
    work.WriteLog("no directory");
    const bool createdWithoutDir = ws_test::FileExists("C:");
    ASSERT_TRUE(ws_test::MakeDirs(tree.Path("C:")));
    work.WriteLog("step 1");
    work.WriteLog("step 2");
    const std::string text = ws_test::ReadFile(tree.Path("C:/testTime.txt"));
    ASSERT_EQ(::chdir(old), 0);
    EXPECT_FALSE(createdWithoutDir);
    EXPECT_EQ(LinesAfterTime(text), (std::vector<std::string>{"\tstep 1", "\tstep 2"})) << text;
}

}  // namespace
