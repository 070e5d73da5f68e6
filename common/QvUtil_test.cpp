// Tests of CQvUtil and GetQVInstallPath: installation paths of executables placed in temporary
// trees, ports and INI look-ups of a private installation (this binary runs relocated), and the
// identifier, label and path helpers.
#include "common/QvUtil.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "common/Util.h"
#include "tests/support/TestTree.h"

namespace {

// Copies of the probe placed in a temporary tree (and run through a symbolic link where one is
// given) print what they find: install path, GetQVInstallPath(name), run path, the other install
// path; relative to the tree, "-" for "".
TEST(QvUtilPathTest, InstallationFoundAboveTheExecutable) {
    ws_test::TempTree tree("qvpath");
    const struct {
        const char* exe;
        const char* name;  // nullptr: "Server"
        const char* link;  // nullptr: run the copy itself
        std::vector<std::string> want;
    } cases[] = {
        {"a/Server/bin/x", nullptr, nullptr, {"a/Server", "a/Server", "a/Server/bin", "a/Server"}},
        {"a/b/bin/x", nullptr, nullptr, {"a/b", "-", "a/b/bin", "-"}},
        {"Server/x/bin/y", nullptr, nullptr, {"Server", "Server", "Server/x/bin", "Server"}},
        {"Server/x/bin/y", "x", nullptr, {"Server", "Server/x", "Server/x/bin", "Server"}},
        {"Server/x/bin/y", "y", nullptr, {"Server", "Server/x/bin/y", "Server/x/bin", "Server"}},
        {"Server/x/bin/y", "Serv", nullptr, {"Server", "-", "Server/x/bin", "Server"}},
        {"a/Server/bin/x",
         nullptr,
         "o/bin/l",
         {"a/Server", "a/Server", "a/Server/bin", "a/Server"}},
    };
    for (const auto& c : cases) {
        const std::string label = std::string(c.exe) + " " + (c.name ? c.name : "");
        std::vector<std::string> want, args, got;
        for (const std::string& w : c.want)
            want.push_back(w == "-" ? "" : tree.Path(w));
        if (c.name)
            args.push_back(c.name);
        std::string run = tree.Path(c.exe);
        ASSERT_TRUE(ws_test::CopyExecutable(WS_PATH_PROBE, run)) << label;
        if (c.link) {
            ASSERT_TRUE(ws_test::MakeDirs(tree.Path("o/bin")));
            ASSERT_EQ(::symlink(run.c_str(), tree.Path(c.link).c_str()), 0);
            run = tree.Path(c.link);
        }
        int status = -1;
        std::stringstream out(ws_test::RunAndCapture(run, args, &status));
        for (std::string line; std::getline(out, line);)
            got.push_back(line);
        EXPECT_EQ(status, 0) << label;
        EXPECT_EQ(got, want) << label;
    }
}

class QvUtilInstallTest : public ::testing::Test {
protected:
    std::string m_strRoot = ws_test::InstallRoot();
    std::string m_strDbConfig = m_strRoot + "/middle/Conf/dbconfig.ini";
    std::string m_strHarbour = m_strRoot + "/webharbour/middle.ini";
    void TearDown() override {
        ::unlink(m_strDbConfig.c_str());
        ::unlink(m_strHarbour.c_str());
    }
};

TEST_F(QvUtilInstallTest, RelocatedBinaryFindsItsTree) {
    ASSERT_FALSE(m_strRoot.empty()) << "run through the relocating main";
    EXPECT_EQ(CQvUtil::GetInstallPath(), m_strRoot);
    EXPECT_EQ(CQvUtil::GetCurrentRunPath(), m_strRoot + "/bin");
}

TEST_F(QvUtilInstallTest, DatabasePort) {
    EXPECT_EQ(CQvUtil::GetDBPort(), 8123);  // no file
    struct Case {
        const char* content;
        int port;
    } cases[] = {
        {"[main]\nListenPort=9001\n", 9001}, {"[main]\nListenPort = 77x\n", 77},
        {"[main]\nListenPort=abc\n", 0},     {"[main]\nListenPort=\n", 8123},
        {"[other]\nListenPort=1\n", 8123},   {"[main]\nlistenport=1\n", 8123},
    };
    for (const Case& c : cases) {
        ws_test::WriteFile(m_strDbConfig, c.content);
        EXPECT_EQ(CQvUtil::GetDBPort(), c.port) << c.content;
    }
}

TEST_F(QvUtilInstallTest, WebServerPort) {
    EXPECT_EQ(CQvUtil::GetWebHarbourport(), 8121);
    ws_test::WriteFile(m_strHarbour, "[main]\nListenPort=8088\n");
    EXPECT_EQ(CQvUtil::GetWebHarbourport(), 8088);
    EXPECT_EQ(CQvUtil::GetDBPort(), 8123);  // a different file
}

TEST_F(QvUtilInstallTest, IniLookups) {
    ws_test::WriteFile(m_strRoot + "/middle/Conf/extra.ini", "[safe]\ncheck=1\n");
    EXPECT_EQ(CQvUtil::GetINIKeyStringFromMiddle("safe", "check", "0", "extra.ini"), "1");
    EXPECT_EQ(CQvUtil::GetINIKeyStringFromMiddle("safe", "none", "0", "extra.ini"), "0");
    EXPECT_EQ(CQvUtil::GetINIKeyStringFromMiddle("safe", "check", "dflt", "missing.ini"), "dflt");
    std::string def = "d";
    EXPECT_EQ(CQvUtil::GetINIKeyString("safe", "check", def, m_strRoot + "/middle/Conf/extra.ini"),
              "1");
    EXPECT_EQ(CQvUtil::GetINIKeyString("safe", "x", def, "/nonexistent/x.ini"), "d");
    // The default is cut like a value.
    std::string longDef(3000, 'z');
    EXPECT_EQ(CQvUtil::GetINIKeyString("s", "k", longDef, "/nonexistent/x.ini").size(), 2046u);
}

TEST(QvUtilTest, LegalNames) {
    std::string name = "a<b>.c=d";
    EXPECT_EQ(&CQvUtil::GetLegalName(name), &name);
    EXPECT_EQ(name, "a_b__c_d");
    std::string all = "<>?:/\\*|\".~=ok";
    EXPECT_EQ(CQvUtil::GetLegalName(all), "____________ok");
}

TEST(QvUtilTest, DurationLabels) {
    struct Case {
        int seconds;
        const char* label;
    } cases[] = {{3725, "1小时2分钟5秒"}, {0, ""},
                 {3600, "1小时"},         {59, "59秒"},
                 {60, "1分钟"},           {3601, "1小时1秒"},
                 {7260, "2小时1分钟"}};
    for (const Case& c : cases)
        EXPECT_EQ(CQvUtil::ConverSecToShowLabel(c.seconds), c.label);
}

TEST(QvUtilTest, TruncateCountsHighBytesAsTwoByteCharacters) {
    // "中" is three bytes in UTF-8, but a high byte always counts as a two-byte character. The
    // result is the count asked for when nothing is cut, else the bytes kept.
    const struct {
        std::string text;
        int count;
        int result;
        std::string kept;
    } cases[] = {
        {"abc", 3, 3, "abc"},      {"abc", 10, 10, "abc"}, {"abc", 2, 2, "ab"},
        {"中a", 1, 2, "\xe4\xb8"}, {"中ab", 2, 4, "中a"},  {"a\xe4", 1, 1, "a"},
    };
    for (const auto& c : cases) {
        std::string text = c.text;
        EXPECT_EQ(CQvUtil::TruncateString(text, c.count), c.result) << c.text << " " << c.count;
        EXPECT_EQ(text, c.kept) << c.text << " " << c.count;
    }
}

TEST(QvUtilTest, Identifiers) {
    EXPECT_EQ(CQvUtil::MakeCCUFullId("", "u1"), "u1");
    EXPECT_EQ(CQvUtil::MakeCCUFullId("c1", "u1"), "c1.u1");
    std::string left = "l", right = "r";
    EXPECT_FALSE(CQvUtil::TruncateCCUId("nodot", left, right));
    EXPECT_EQ(left, "l");
    EXPECT_TRUE(CQvUtil::TruncateCCUId("c1.u1.x", left, right));
    EXPECT_EQ(left, "c1");
    EXPECT_EQ(right, "u1.x");
    EXPECT_EQ(CQvUtil::GetParentID("c1.u1.x"), "c1.u1");
    EXPECT_EQ(CQvUtil::GetParentID("c1"), "c1");
    EXPECT_EQ(CQvUtil::GetParentID(""), "");
    EXPECT_EQ(CQvUtil::FindEntityID("m1_SubMonitor3"), "m1");
    EXPECT_EQ(CQvUtil::FindEntityID("SubMonitor3"), "SubMonitor3");
    EXPECT_EQ(CQvUtil::FindEntityID("m1.x"), "");
}

TEST(QvUtilTest, GuidsAreFreshHyphenatedTexts) {
    std::set<std::string> seen;
    for (int i = 0; i < 100; ++i) {
        std::string g = CQvUtil::GetGuid();
        ASSERT_EQ(g.size(), 36u);
        for (size_t p : {8u, 13u, 18u, 23u})
            EXPECT_EQ(g[p], '-');
        seen.insert(g);
    }
    EXPECT_EQ(seen.size(), 100u);
}

TEST(QvUtilTest, LocalTimeTextToSeconds) {
    ::setenv("TZ", "UTC", 1);
    ::tzset();
    EXPECT_EQ(CQvUtil::FormatStringToTime(""), 0);
    EXPECT_EQ(CQvUtil::FormatStringToTime("2024-03-05 07:08:09"), 1709622489);
    EXPECT_EQ(CQvUtil::FormatStringToTime("2024-03-05"), 1709596800);
    EXPECT_EQ(CQvUtil::FormatStringToTime("2024-03-05 24:00:00"), 1709596800 + 3600);
    ::setenv("TZ", "CST-8", 1);
    ::tzset();
    EXPECT_EQ(CQvUtil::FormatStringToTime("2024-03-05 15:08:09"), 1709622489);
    ::unsetenv("TZ");
    ::tzset();
}

TEST(QvUtilTest, CreateDirUsesMode070) {
    ws_test::TempTree tree("qvdir");
    mode_t mask = ::umask(0);
    ::umask(mask);
    std::string one = tree.Path("one");
    EXPECT_TRUE(CQvUtil::CreateDir(one));
    struct stat st;
    ASSERT_EQ(::stat(one.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 070u & ~mask);
    EXPECT_TRUE(CQvUtil::CreateDir(one));  // exists already
    EXPECT_TRUE(CQvUtil::CreateDir("relative-name-without-separator"));
    EXPECT_FALSE(ws_test::FileExists("relative-name-without-separator"));
    std::string deep = tree.Path("p/q/r");
    bool made = CQvUtil::CreateDir(deep);
    if (::geteuid() == 0) {
        EXPECT_TRUE(made);
        ASSERT_EQ(::stat(tree.Path("p/q").c_str(), &st), 0);
        EXPECT_EQ(st.st_mode & 0777, 070u & ~mask);
        EXPECT_TRUE(ws_test::FileExists(deep));
    } else {
        // The owner has no rights on a directory of mode 070, so nothing can be made inside it.
        EXPECT_FALSE(made);
    }
    ::chmod(tree.Path("p").c_str(), 0755);
    ::chmod(tree.Path("p/q").c_str(), 0755);
    EXPECT_FALSE(CQvUtil::CreateDir("/proc/no/such/dir"));
}

TEST(QvUtilTest, SmallHelpers) {
    EXPECT_EQ(CQvUtil::GetFilenameExtension("/x/a.tar.gz"), "tar.gz");
    EXPECT_EQ(CQvUtil::GetFilenameExtension("c:\\d.e\\f.txt"), "txt");
    EXPECT_EQ(CQvUtil::GetFilenameExtension("dir.x/file"), "");
    EXPECT_EQ(CQvUtil::JsonString("a\\b\"c\n"), "a\\\\b\\\"c\n");
}

}  // namespace
