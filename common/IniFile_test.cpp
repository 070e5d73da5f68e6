// Tests of tarn::CIniFile on real files: the load rules (sections, "=", the comment rule, long
// lines), look-ups and their side effect, changes, the canonical save and the destructor's save.
#include "common/IniFile.h"

#include <gtest/gtest.h>

#include <list>
#include <map>
#include <string>

#include "tests/support/TestTree.h"

namespace {

using tarn::CIniFile;

class IniFileTest : public ::testing::Test {
protected:
    ws_test::TempTree m_tree{"initest"};
    std::string m_strPath = m_tree.Path("test.ini");

    // Loads `content` and returns LoadFile's result; the object keeps what was read.
    int LoadInto(CIniFile& ini, const std::string& content) {
        ws_test::WriteFile(m_strPath, content);
        return ini.Init(m_strPath) ? 0 : -1;
    }
    // Everything the object holds, in the file format.
    static std::string Held(CIniFile& ini) {
        ::testing::internal::CaptureStdout();
        EXPECT_EQ(ini.Dump(), 0);
        return ::testing::internal::GetCapturedStdout();
    }
};

TEST_F(IniFileTest, LoadRules) {
    const std::string v1100(1100, 'v'), v1021(1021, 'v');
    const struct {
        const char* what;
        std::string content;
        int result;
        std::string held;
    } cases[] = {
        {"key before any section: nothing stored", "b=1\n[s]\nk = v \n", -1, ""},
        {"names and values trimmed, later \"=\" kept",
         "[ s ]\nk=v=w\n  spaced key \t=\t spaced value \r\n", 0,
         "[s]\nk=v=w\nspaced key=spaced value\n\n"},
        {"later definition wins", "[s]\nk=1\n[t]\nx=0\n[s]\nk=2\n", 0, "[s]\nk=2\n\n[t]\nx=0\n\n"},
        {"empty keys and lines without \"=\" ignored, no section without a key",
         "[s]\n=v\n \t=w\nnoequals\n[empty]\n", 0, ""},
        {"blank value", "[s]\nk= \t\r\n", 0, "[s]\nk=\n\n"},
        {"\"[\" without \"]\": what came before stays", "[a]\nx=1\n[s\nk=v\n", -1, "[a]\nx=1\n\n"},
        {"no comment character", "[s]\n# x=1\n; a=b\n; note\n", 0, "[s]\n# x=1\n; a=b\n\n"},
        {"any bracket makes a header", "[s]\nurl=http://h/[x]\n", 0, ""},
        {"an empty section name fails the next key", "[ ]\nk=v\n", -1, ""},
        {"long lines arrive in pieces of 1023", "[s]\nk=" + v1100 + "\nnext=1\n", 0,
         "[s]\nk=" + v1021 + "\nnext=1\n\n"},
    };
    for (const auto& c : cases) {
        CIniFile ini;
        EXPECT_EQ(LoadInto(ini, c.content), c.result) << c.what;
        EXPECT_EQ(Held(ini), c.held) << c.what;
    }
}

TEST_F(IniFileTest, LoadingAddsToWhatIsThere) {
    CIniFile ini;
    ini.PutIniSetting("mem", "only", "1");
    ASSERT_EQ(LoadInto(ini, "[s]\nk=v\n"), 0);
    EXPECT_EQ(Held(ini), "[mem]\nonly=1\n\n[s]\nk=v\n\n");
}

TEST_F(IniFileTest, MissingFileFailsAndDefaultsServe) {
    CIniFile ini;
    EXPECT_FALSE(ini.Init(m_tree.Path("none.ini")));
    EXPECT_EQ(ini.GetIniSetting("s", "k", "dflt"), "dflt");
    EXPECT_EQ(ini.GetIniSetting(nullptr, "k", "dflt"), "");
    EXPECT_EQ(ini.GetIniSetting("s", nullptr, "dflt"), "");
    EXPECT_EQ(ini.GetIniSetting("s", "k", nullptr), "");
}

TEST_F(IniFileTest, DefaultForMissingOrEmptyValueAndTheAddedKey) {
    {
        CIniFile ini;
        ASSERT_EQ(LoadInto(ini, "[s]\nempty=\n"), 0);
        std::string value = "unchanged";
        EXPECT_EQ(ini.ReadItem("nosuch", "k", value), -1);
        EXPECT_EQ(value, "unchanged");
        EXPECT_EQ(ini.GetIniSetting("s", "empty", "d"), "d");
        EXPECT_EQ(ini.GetIniSetting("s", "k", "d"), "d");
        // Reading the missing key added it to the section, without marking a change...
        EXPECT_EQ(Held(ini), "[s]\nempty=\nk=\n\n");
    }
    EXPECT_EQ(ws_test::ReadFile(m_strPath), "[s]\nempty=\n");  // ...so nothing was saved
    {
        CIniFile ini;
        ASSERT_EQ(LoadInto(ini, "[s]\na=1\n"), 0);
        EXPECT_EQ(ini.GetIniSetting("s", "k", "d"), "d");
        ini.PutIniSetting("s", "b", "2");
    }
    // ...but the next save of a changed object writes it.
    EXPECT_EQ(ws_test::ReadFile(m_strPath), "[s]\na=1\nb=2\nk=\n\n");
}

TEST_F(IniFileTest, ChangesAndTheCanonicalSave) {
    CIniFile ini(m_strPath);
    ini.PutIniSetting("b", "x", "1");
    ini.PutIniSetting("a", "y", "2");
    ini.PutIniSetting("a", "B", "3");  // byte-wise: upper case first
    ini.PutIniSetting("a", "x", "5");
    ini.PutIniSetting("c", "z", "6");
    ini.PutIniSetting(nullptr, "z", "4");
    ini.PutIniSetting("a", nullptr, "4");
    ini.PutIniSetting("a", "z", nullptr);
    EXPECT_EQ(ini.SaveIni(), 0);
    EXPECT_EQ(ws_test::ReadFile(m_strPath), "[a]\nB=3\nx=5\ny=2\n\n[b]\nx=1\n\n[c]\nz=6\n\n");
    ini.RemoveIniSetting("a", "x");
    ini.RemoveIniSetting("a", "missing");
    ini.RemoveIniSetting("c", nullptr);
    ini.RemoveIniSetting(nullptr, "y");
    EXPECT_EQ(Held(ini), "[a]\nB=3\ny=2\n\n[b]\nx=1\n\n");

    CIniFile unwritable(m_tree.Path("no/such/dir/x.ini"));
    unwritable.PutIniSetting("s", "k", "v");
    EXPECT_EQ(unwritable.WriteFile(), -1);
}

TEST_F(IniFileTest, DestructorSavesChangedObjectsOnly) {
    ws_test::WriteFile(m_strPath, "; layout\n[z]\nk = v\n\n[a]\nq=1\n");
    {
        CIniFile ini;
        ASSERT_TRUE(ini.Init(m_strPath));
    }
    EXPECT_EQ(ws_test::ReadFile(m_strPath), "; layout\n[z]\nk = v\n\n[a]\nq=1\n");
    {
        CIniFile ini;
        ASSERT_TRUE(ini.Init(m_strPath));
        ini.RemoveIniSetting("nosuch", nullptr);  // removes nothing but marks the object changed
    }
    EXPECT_EQ(ws_test::ReadFile(m_strPath), "[a]\nq=1\n\n[z]\nk=v\n\n");
}

TEST_F(IniFileTest, ExplicitSaveKeepsTheModifiedFlag) {
    {
        CIniFile ini(m_strPath);
        ini.PutIniSetting("s", "k", "1");
        ASSERT_EQ(ini.WriteFile(), 0);
        ws_test::WriteFile(m_strPath, "overwritten by someone else\n");
    }
    EXPECT_EQ(ws_test::ReadFile(m_strPath), "[s]\nk=1\n\n");  // saved again by the destructor
}

TEST_F(IniFileTest, SectionQueries) {
    CIniFile ini;
    ASSERT_EQ(LoadInto(ini, "[b]\nx=1\n[a]\ny=2\n"), 0);
    std::map<std::string, std::string> keys = {{"keep", "me"}};
    EXPECT_FALSE(ini.GetSection(nullptr, keys));
    EXPECT_TRUE(ini.GetSection("nosuch", keys));
    EXPECT_EQ(keys.count("keep"), 1u);  // left as it was
    EXPECT_TRUE(ini.GetSection("b", keys));
    EXPECT_EQ(keys, (std::map<std::string, std::string>{{"x", "1"}}));
    std::list<std::string> names = {"first"};
    EXPECT_TRUE(ini.GetSectionNames(names));
    EXPECT_EQ(names, (std::list<std::string>{"first", "a", "b"}));
}

}  // namespace
