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
    std::list<std::string> Sections(CIniFile& ini) {
        std::list<std::string> names;
        ini.GetSectionNames(names);
        return names;
    }
};

TEST_F(IniFileTest, KeyBeforeAnySectionFailsWithNothingStored) {
    CIniFile ini;
    EXPECT_EQ(LoadInto(ini, "b=1\n[s]\nk = v \n"), -1);
    EXPECT_TRUE(Sections(ini).empty());
}

TEST_F(IniFileTest, SectionNamesAreTrimmedAndValuesKeepLaterEqualsSigns) {
    CIniFile ini;
    ASSERT_EQ(LoadInto(ini, "[ s ]\nk=v=w\n  spaced key \t=\t spaced value \r\n"), 0);
    EXPECT_EQ(ini.GetIniSetting("s", "k", "d"), "v=w");
    EXPECT_EQ(ini.GetIniSetting("s", "spaced key", "d"), "spaced value");
}

TEST_F(IniFileTest, LaterDefinitionWins) {
    CIniFile ini;
    ASSERT_EQ(LoadInto(ini, "[s]\nk=1\n[t]\nx=0\n[s]\nk=2\n"), 0);
    EXPECT_EQ(ini.GetIniSetting("s", "k", "d"), "2");
}

TEST_F(IniFileTest, EmptyKeysAndLinesWithoutEqualsAreIgnored) {
    CIniFile ini;
    ASSERT_EQ(LoadInto(ini, "[s]\n=v\nnoequals\n[empty]\n"), 0);
    EXPECT_TRUE(Sections(ini).empty());  // no key stored, so no section survives
}

TEST_F(IniFileTest, OpenBracketWithoutCloseFails) {
    CIniFile ini;
    EXPECT_EQ(LoadInto(ini, "[a]\nx=1\n[s\nk=v\n"), -1);
    // What came before the bad line stays.
    EXPECT_EQ(ini.GetIniSetting("a", "x", "d"), "1");
    EXPECT_EQ(ini.GetIniSetting("s", "k", "d"), "d");
}

TEST_F(IniFileTest, ThereIsNoCommentCharacter) {
    CIniFile ini;
    ASSERT_EQ(LoadInto(ini, "[s]\n# x=1\n; a=b\n; note\n"), 0);
    EXPECT_EQ(ini.GetIniSetting("s", "# x", "d"), "1");
    EXPECT_EQ(ini.GetIniSetting("s", "; a", "d"), "b");
    std::map<std::string, std::string> keys;
    ASSERT_TRUE(ini.GetSection("s", keys));
    EXPECT_EQ(keys.size(), 2u);
}

TEST_F(IniFileTest, AnyBracketMakesAHeaderAndAnEmptyNameFailsTheNextKey) {
    CIniFile ini;
    EXPECT_EQ(LoadInto(ini, "[s]\nurl=http://h/[x]\n"), 0);
    EXPECT_EQ(ini.GetIniSetting("x", "url", "d"), "d");  // the line became section "x"
    CIniFile other;
    EXPECT_EQ(LoadInto(other, "[ ]\nk=v\n"), -1);
}

TEST_F(IniFileTest, LongPhysicalLinesArriveInPiecesOf1023) {
    CIniFile ini;
    std::string value(1100, 'v');
    ASSERT_EQ(LoadInto(ini, "[s]\nk=" + value + "\nnext=1\n"), 0);
    EXPECT_EQ(ini.GetIniSetting("s", "k", "d"), std::string(1021, 'v'));
    EXPECT_EQ(ini.GetIniSetting("s", "next", "d"), "1");
}

TEST_F(IniFileTest, LoadingAddsToWhatIsThere) {
    CIniFile ini;
    ini.PutIniSetting("mem", "only", "1");
    ASSERT_EQ(LoadInto(ini, "[s]\nk=v\n"), 0);
    EXPECT_EQ(ini.GetIniSetting("mem", "only", "d"), "1");
    EXPECT_EQ(ini.GetIniSetting("s", "k", "d"), "v");
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
        std::map<std::string, std::string> keys;
        ini.GetSection("s", keys);
        EXPECT_EQ(keys.count("k"), 1u);
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

TEST_F(IniFileTest, CanonicalSaveSortsSectionsAndKeys) {
    CIniFile ini(m_strPath);
    ini.PutIniSetting("b", "x", "1");
    ini.PutIniSetting("a", "y", "2");
    ini.PutIniSetting("a", "B", "3");  // byte-wise: upper case first
    ini.PutIniSetting(nullptr, "z", "4");
    ini.PutIniSetting("a", nullptr, "4");
    ini.PutIniSetting("a", "z", nullptr);
    EXPECT_EQ(ini.SaveIni(), 0);
    EXPECT_EQ(ws_test::ReadFile(m_strPath), "[a]\nB=3\ny=2\n\n[b]\nx=1\n\n");
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

TEST_F(IniFileTest, RemoveKeyOrSection) {
    CIniFile ini;
    ASSERT_EQ(LoadInto(ini, "[a]\nx=1\ny=2\n[b]\nz=3\n"), 0);
    ini.RemoveIniSetting("a", "x");
    ini.RemoveIniSetting("a", "missing");
    ini.RemoveIniSetting("b", nullptr);
    ini.RemoveIniSetting(nullptr, "y");
    EXPECT_EQ(ini.SaveIni(), 0);
    EXPECT_EQ(ws_test::ReadFile(m_strPath), "[a]\ny=2\n\n");
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

TEST_F(IniFileTest, WriteFailsForAnUnwritablePath) {
    CIniFile ini(m_tree.Path("no/such/dir/x.ini"));
    ini.PutIniSetting("s", "k", "v");
    EXPECT_EQ(ini.WriteFile(), -1);
}

TEST_F(IniFileTest, TrimStringRemovesBlanksOnly) {
    CIniFile ini;
    std::string a = " \t\r\nx y\t \n";
    std::string b = " \t\r\n";
    EXPECT_EQ(ini.TrimString(a), 0);
    EXPECT_EQ(ini.TrimString(b), 0);
    EXPECT_EQ(a, "x y");
    EXPECT_EQ(b, "");
}

TEST_F(IniFileTest, DumpPrintsTheFileFormat) {
    CIniFile ini;
    ini.PutIniSetting("s", "k", "v");
    ::testing::internal::CaptureStdout();
    EXPECT_EQ(ini.Dump(), 0);
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "[s]\nk=v\n\n");
    ini.RemoveIniSetting("s", nullptr);
}

}  // namespace
