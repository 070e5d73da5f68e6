// Tests of CQvVar on raw handles of the embedded engine: name helpers, typed key readers and
// writers, MapStringWrite, key creation by dotted paths, bulk key operations, and OpenMQ modes.
#include "db/QvVar.h"

#include <dirent.h>
#include <gtest/gtest.h>

#include <string>

#include "db/QvHandle.h"
#include "tests/support/TestTree.h"

using tarn::VariableData;

namespace {

// Everything written to today's handle log (there is one such file per day).
std::string HandleLog() {
    std::string dir = ws_test::InstallRoot() + "/middle/log";
    std::string all;
    if (DIR* d = ::opendir(dir.c_str())) {
        while (dirent* e = ::readdir(d)) {
            std::string name = e->d_name;
            if (name.rfind("handle", 0) == 0)
                all += ws_test::ReadFile(dir + "/" + name);
        }
        ::closedir(d);
    }
    return all;
}

}  // namespace

class QvVarTest : public ::testing::Test {
protected:
    // The logger reads its level once, at its first use in this process: detail lines (level
    // 10) are kept for the whole binary.
    static void SetUpTestSuite() {
        ws_test::WriteFile(ws_test::InstallRoot() + "/middle/Conf/middle.ini",
                           "[main]\nloglevel=10\n");
    }
    void SetUp() override {
        static int next = 27000;
        m_nPort = next++;
    }
    void TearDown() override {
        bs_debug_fail_next("bs_treedb_insert_property", 0, 0);
        bs_debug_fail_next("bs_handle_keep_live", 0, 0);
        if (m_h != BS_INVALID_HANDLE)
            bs_close_handle(m_h);
    }
    void OpenTree() {
        ASSERT_EQ(bs_treedb_open(m_h, "main", nullptr, "", BS_OPEN_CREATE, "t", m_strAddr.c_str(),
                                 static_cast<unsigned short>(m_nPort)),
                  BS_OK);
    }
    std::string CurrentSub() {
        std::string tree, main, key, sub;
        unsigned int flags = 0, port = 0;
        EXPECT_EQ(bs_treedb_query_handle(m_h, tree, main, key, flags, sub, port), BS_OK);
        return sub;
    }
    std::string m_strAddr = "127.0.0.1";
    int m_nPort = 0;
    void* m_h = BS_INVALID_HANDLE;
};

TEST_F(QvVarTest, ParentNamesCutAtTheLastSeparator) {
    const char* const ids[][2] = {{"a.b.c", "a.b"}, {"abc", ""}, {"", ""}, {".x", ""}, {"a.", "a"}};
    for (const auto& row : ids)
        EXPECT_EQ(CQvVar::GetParentDataId(row[0]), row[1]) << row[0];
    const char* const names[][2] = {{"a\\b\\c", "a\\b"}, {"abc", ""}, {"a.b", ""}};
    for (const auto& row : names) {
        EXPECT_EQ(CQvVar::GetParentEntityName(row[0]), row[1]) << row[0];
    }
}

TEST_F(QvVarTest, TypedReadersGiveTheTextFormOrTheDefault) {
    OpenTree();
    ASSERT_EQ(CQvVar::WriteKeyString("s", "7x", m_h), 0);
    ASSERT_EQ(CQvVar::WriteKeyfloat("f", 1.5f, m_h), 0);
    ASSERT_EQ(CQvVar::WriteKeyInt64("l", 1LL << 40, m_h), 0);
    EXPECT_EQ(CQvVar::GetKeyInt("s", -1, m_h), 7);
    EXPECT_EQ(CQvVar::GetKeyString("f", "", m_h), "1.500");
    EXPECT_EQ(CQvVar::GetKeyString("l", "", m_h), "1099511627776");
    EXPECT_EQ(CQvVar::GetKeyString("missing", "def", m_h), "def");
    EXPECT_EQ(CQvVar::GetKeyInt("missing", -1, m_h), -1);
    void* closed = BS_INVALID_HANDLE;
    EXPECT_EQ(CQvVar::GetKeyInt("s", -2, closed), -2);
}

TEST_F(QvVarTest, MapStringWriteStopsAtTheFirstFailure) {
    OpenTree();
    EXPECT_EQ(CQvVar::MapStringWrite({}, m_h), 0);
    std::list<std::string> names;
    ASSERT_EQ(bs_treedb_get_all_property_names(m_h, names), BS_OK);
    EXPECT_TRUE(names.empty());

    ASSERT_EQ(CQvVar::MapStringWrite({{"b", "2"}, {"a", "1"}}, m_h), 0);
    EXPECT_EQ(CQvVar::GetKeyString("a", "", m_h), "1");
    EXPECT_EQ(CQvVar::GetKeyString("b", "", m_h), "2");
    // Entries go in key order: "c" fails, so "d" is never written.
    bs_debug_fail_next("bs_treedb_insert_property", BS_ERR_TOO_BIG, 1);
    EXPECT_EQ(CQvVar::MapStringWrite({{"d", "4"}, {"c", "3"}}, m_h), BS_ERR_TOO_BIG);
    EXPECT_EQ(CQvVar::GetKeyString("c", "none", m_h), "none");
    EXPECT_EQ(CQvVar::GetKeyString("d", "none", m_h), "none");
}

TEST_F(QvVarTest, DottedPathsAreCreatedOnDemandAndKeysDeletedInBulk) {
    OpenTree();
    EXPECT_EQ(CQvVar::ReopenSubKey(m_h, "a\\b", 0), BS_ERR_NO_SUBKEY);
    ASSERT_EQ(CQvVar::ReopenNewKey(m_h, "a.b.c", 0), 0);
    EXPECT_EQ(CurrentSub(), "a\\b\\c");
    ASSERT_EQ(CQvVar::ReopenNewKey(m_h, "a.b", "d", 0), 0);  // "a.b" exists already
    EXPECT_EQ(CurrentSub(), "a\\b\\d");
    EXPECT_EQ(CQvVar::ReopenNewKey(m_h, "a..x", 0), BS_ERR_BAD_NAME);
    ASSERT_EQ(CQvVar::AppendSubKey(m_h, "e", 0), 0);
    EXPECT_EQ(CurrentSub(), "a\\b\\d\\e");

    ASSERT_EQ(CQvVar::WriteKeyMap(m_h, {{"x", VariableData(1)}, {"y", VariableData(2.5)}}), 0);
    std::map<std::string, std::string> text;
    ASSERT_EQ(CQvVar::GetKeyMap(m_h, text), 0);
    EXPECT_EQ(text, (std::map<std::string, std::string>{{"x", "1"}, {"y", "2.500"}}));
    ASSERT_EQ(CQvVar::DeleteRealKey(m_h), 0);
    EXPECT_EQ(CurrentSub(), "a\\b\\d");

    ASSERT_EQ(CQvVar::ReopenSubKey(m_h, "a\\b", 0), 0);
    // A missing name counts as deleted; the others all go.
    EXPECT_EQ(CQvVar::DeleteKeyList(m_h, {"c", "nothere", "d"}), 0);
    std::list<std::string> left;
    ASSERT_EQ(CQvVar::SelectSubKeys(m_h, left), 0);
    EXPECT_TRUE(left.empty());
}

TEST_F(QvVarTest, OpenMQModesOpenCreateAndRetryOnAMissingQueue) {
    EXPECT_EQ(CQvVar::OpenMQ(m_strAddr, "", "", m_h, 3, 0, m_nPort), 1);
    EXPECT_EQ(CQvVar::OpenMQ(m_strAddr, "q", "", m_h, 1, 0, m_nPort), BS_ERR_NO_QUEUE);
    EXPECT_EQ(m_h, BS_INVALID_HANDLE);
    // Mode 3: the open answers 121, the second open creates the queue.
    ASSERT_EQ(CQvVar::OpenMQ(m_strAddr, "q", "", m_h, 3, 0, m_nPort), 0);
    std::list<std::string> names;
    ASSERT_EQ(bs_mq_query_all_names(names, m_strAddr.c_str(), static_cast<unsigned short>(m_nPort)),
              BS_OK);
    EXPECT_EQ(names, std::list<std::string>{"q"});
    // Mode 3 on an open handle: the reopen answers 121 for "r", which is then created.
    ASSERT_EQ(CQvVar::OpenMQ(m_strAddr, "r", "", m_h, 3, 0, m_nPort), 0);
    EXPECT_EQ(CQvVar::OpenMQ(m_strAddr, "s", "", m_h, 1, 0, m_nPort), BS_ERR_NO_QUEUE);

    // Mode 2 on an open handle closes it first and says so on standard output.
    void* h2 = BS_INVALID_HANDLE;
    ASSERT_EQ(CQvVar::OpenMQ(m_strAddr, "q", "", h2, 1, 0, m_nPort), 0);
    testing::internal::CaptureStdout();
    ASSERT_EQ(CQvVar::OpenMQ(m_strAddr, "t", "", h2, 2, 0, m_nPort), 0);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "\xb4\xb4\xbd\xa8MQ\xd6\xae\xc7\xb0\xcf\xc8\xbd\xab\xd2\xd1\xb4\xf2\xbf\xaaMQ\xb5\xc4"
              "handle\xb9\xd8\xb1\xd5!");
    EXPECT_EQ(bs_handle_keep_live(h2), BS_OK);
    bs_close_handle(h2);
}

TEST_F(QvVarTest, OpeningsAndDeadHandlesAreLoggedToTheHandleLog) {
    ASSERT_EQ(CQvVar::OpenMQ(m_strAddr, "logged", "", m_h, 2, 0, m_nPort), 0);
    // A dead handle is replaced.
    bs_debug_fail_next("bs_handle_keep_live", BS_ERR_CONN_LOST, 1);
    ASSERT_EQ(CQvVar::OpenMQ(m_strAddr, "logged", "", m_h, 1, 0, m_nPort), 0);
    EXPECT_EQ(bs_handle_keep_live(m_h), BS_OK);
    CQvHandleLoc loc;
    ASSERT_EQ(loc.Treedb_Alloc(m_strAddr, "logtree", "logmain", "", -1, m_nPort), 0);
    std::string log = HandleLog();
    for (const char* line :
         {" new mq handle ,mq name is logged\n", " open bs_mq_open logged handle \n",
          " open tree logtree handle mainkey is logmain\n",
          " \xb2\xe2\xca\xd4handle\xca\xa7\xb0\xdc\n"})
        EXPECT_NE(log.find(line), std::string::npos) << line << log;
}

TEST_F(QvVarTest, OneMessageHelpersUseAHandleOfTheirOwn) {
    VariableData scratch;
    EXPECT_EQ(CQvVar::MQ_PopOneMsg(m_strAddr, "one", scratch, 0, m_nPort), BS_ERR_NO_QUEUE);
    ASSERT_EQ(CQvVar::MQ_PushOneMsg(m_strAddr, "one", VariableData(42), m_nPort), 0);
    VariableData got;
    ASSERT_EQ(CQvVar::MQ_PopOneMsg(m_strAddr, "one", got, 0, m_nPort), 0);
    EXPECT_EQ(static_cast<int>(got), 42);
    EXPECT_EQ(CQvVar::MQ_PopOneMsg(m_strAddr, "one", got, 10, m_nPort), BS_ERR_TIMEOUT);
}
