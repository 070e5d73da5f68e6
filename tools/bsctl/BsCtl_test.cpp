// Tests of bsctl, run as a real program from the test's private installation tree.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "bsapi/bsapi.h"
#include "tests/support/PgServer.h"
#include "tests/support/TestTree.h"

class BsCtlTest : public ::testing::TestWithParam<const char*> {
protected:
    static void SetUpTestSuite() {
        // bsctl finds the data directory from its own place: beside this test, in <root>/bin.
        ASSERT_TRUE(ws_test::CopyExecutable(BSCTL_PATH, ws_test::InstallRoot() + "/bin/bsctl"));
    }
    void SetUp() override { ASSERT_NO_FATAL_FAILURE(ws_test::UseEngine(GetParam())); }
    std::string Run(std::vector<std::string> args, int* status) {
        args.insert(args.begin(), {"--port", "25000"});
        int raw = -1;
        std::string out = ws_test::RunAndCapture(ws_test::InstallRoot() + "/bin/bsctl", args, &raw);
        *status = raw;
        return out;
    }
};

TEST_P(BsCtlTest, BadArgumentsExitWith2) {
    const std::vector<std::vector<std::string>> cases = {
        {},
        {"nosuch"},
        {"tree"},
        {"tree", "set", "t", "m", "-", "x", "int16", "70000"},
        {"tree", "set", "t", "m", "-", "x", "int32", "12abc"},
        {"tree", "set", "t", "m", "-", "x", "nosuchtype", "1"},
        {"tree", "set", "t", "m", "-", "x", "uint8", "-1"},
        {"queue", "push", "q"},
        {"queue", "pop", "q", "--timeout", "soon"},
        {"table", "delete", "db", "t", "x1"},
        {"--bogus", "1", "queue", "list"},
        {"queue", "list", "--port"},
    };
    for (const auto& c : cases) {
        int status = -1;
        Run(c, &status);
        EXPECT_EQ(status, 2) << (c.empty() ? "(none)" : c[0]) << " " << c.size();
    }
    int status = -1;
    ws_test::RunAndCapture(ws_test::InstallRoot() + "/bin/bsctl",
                           {"--port", "70000", "queue", "list"}, &status);
    EXPECT_EQ(status, 2);
}

TEST_P(BsCtlTest, TreeKeysAndProperties) {
    int st = -1;
    Run({"tree", "list", "cfg"}, &st);
    EXPECT_EQ(st, 1);  // no such tree
    Run({"tree", "addkey", "cfg", "main", "a\\b[1]"}, &st);
    ASSERT_EQ(st, 0);
    Run({"tree", "set", "cfg", "main", "a\\b[1]", "limit", "uint32", "4294967295"}, &st);
    ASSERT_EQ(st, 0);
    Run({"tree", "set", "cfg", "main", "-", "title", "string", "caf\xc3\xa9\t!"}, &st);
    ASSERT_EQ(st, 0);
    Run({"tree", "set", "cfg", "main", "missing", "x", "int32", "1"}, &st);
    EXPECT_EQ(st, 1);
    EXPECT_EQ(Run({"tree", "list", "cfg"}, &st), "main\n");
    EXPECT_EQ(Run({"tree", "list", "cfg", "main"}, &st), "a\n");
    EXPECT_EQ(Run({"tree", "list", "cfg", "main", "a"}, &st), "b[1]\n");
    EXPECT_EQ(Run({"tree", "show", "cfg", "main", "a\\b[1]"}, &st), "limit\tuint32\t4294967295\n");
    EXPECT_EQ(Run({"tree", "show", "cfg", "main"}, &st), "title\tstring\tcaf\\xc3\\xa9\\x09!\n");
    Run({"tree", "delprop", "cfg", "main", "-", "title"}, &st);
    EXPECT_EQ(st, 0);
    Run({"tree", "delprop", "cfg", "main", "-", "title"}, &st);
    EXPECT_EQ(st, 1);
    Run({"tree", "delkey", "cfg", "main", "a"}, &st);
    EXPECT_EQ(st, 0);
    EXPECT_EQ(Run({"tree", "list", "cfg", "main"}, &st), "");
    Run({"tree", "delkey", "cfg", "main", "a"}, &st);
    EXPECT_EQ(st, 1);
}

TEST_P(BsCtlTest, SeededCodesAreTheSubKeysTheLibraryReads) {
    int st = -1;
    EXPECT_EQ(Run({"seed-codes", "AbC1", "x9z"}, &st), "2 codes seeded\n");
    ASSERT_EQ(st, 0);
    void* h = BS_INVALID_HANDLE;
    ASSERT_EQ(bs_treedb_open(h, "Config", "VerifyCode", "", 0x80000, "ccubase", "127.0.0.1", 25000),
              BS_OK);
    std::list<std::string> codes;
    ASSERT_EQ(bs_treedb_get_subkeys(h, codes), BS_OK);
    EXPECT_EQ(codes, std::list<std::string>({"AbC1", "x9z"}));
    bs_close_handle(h);
}

TEST_P(BsCtlTest, QueuesAndTables) {
    int st = -1;
    Run({"queue", "pop", "jobs"}, &st);
    EXPECT_EQ(st, 1);  // no such queue
    EXPECT_EQ(Run({"queue", "push", "jobs", "hello", "--name", "greeting"}, &st), "1\n");
    EXPECT_EQ(Run({"queue", "list"}, &st), "jobs\n");
    EXPECT_EQ(Run({"queue", "pop", "jobs"}, &st), "1\tgreeting\tstring\thello\n");
    Run({"queue", "pop", "jobs", "--timeout", "20"}, &st);
    EXPECT_EQ(st, 1);  // empty

    void* h = BS_INVALID_HANDLE;
    ASSERT_EQ(bs_tabledb_open(h, "ops", "", "", 0, 0, "127.0.0.1", 25000), BS_OK);
    bs_tdfield who("who", tarn::VariableData::VT_STRING);
    ASSERT_EQ(bs_tabledb_create_table(h, "audit", {&who}, 0), BS_OK);
    unsigned long long id = 0;
    ASSERT_EQ(bs_tabledb_insert_record(h, "audit", {tarn::VariableData("root")}, id, 77L), BS_OK);
    bs_close_handle(h);
    EXPECT_EQ(Run({"table", "list"}, &st), "ops\n");
    EXPECT_EQ(Run({"table", "list", "ops"}, &st), "audit\n");
    EXPECT_EQ(Run({"table", "show", "ops", "audit"}, &st),
              "_FIELD_AUTOID_\t_FIELD_CTIME_\twho\n" + std::to_string(id) + "\t77\troot\n");
    Run({"table", "show", "nodb", "audit"}, &st);
    EXPECT_EQ(st, 1);
    Run({"table", "delete", "ops", "audit", std::to_string(id)}, &st);
    EXPECT_EQ(st, 0);
    Run({"table", "delete", "ops", "audit", std::to_string(id)}, &st);
    EXPECT_EQ(st, 1);
}

WS_ON_EVERY_ENGINE(BsCtlTest);
