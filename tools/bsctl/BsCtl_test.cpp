// Tests of bsctl, run as a real program from the test's private installation tree on both
// engines: the database commands and the record commands (sessions, verification codes,
// companies, CCUs, login names), checked against what the library reads from the same data.
#include <gtest/gtest.h>

#include <list>
#include <string>
#include <vector>

#include "bsapi/bsapi.h"
#include "db/PropSetObj.h"
#include "db/QvHandle.h"
#include "manage/ManageDB.h"
#include "tests/support/PgServer.h"
#include "tests/support/TestTree.h"

class BsCtlTest : public ::testing::TestWithParam<const char*> {
protected:
    static void SetUpTestSuite() {
        // bsctl finds the data directory from its own place: beside this test, in <root>/bin.
        ASSERT_TRUE(ws_test::CopyExecutable(BSCTL_PATH, ws_test::InstallRoot() + "/bin/bsctl"));
    }
    void SetUp() override {
        ASSERT_NO_FATAL_FAILURE(ws_test::UseEngine(GetParam()));
        static int next = 25100;
        m_nPort = next++;  // a data directory of its own per test
    }
    // Runs bsctl on this test's port; returns its standard output, `status` its exit status.
    std::string Run(std::vector<std::string> args, int* status = nullptr) {
        args.insert(args.begin(), {"--port", std::to_string(m_nPort)});
        int raw = -1;
        std::string out = ws_test::RunAndCapture(ws_test::InstallRoot() + "/bin/bsctl", args, &raw);
        if (status != nullptr)
            *status = raw;
        return out;
    }
    int Status(const std::vector<std::string>& args) {
        int st = -1;
        Run(args, &st);
        return st;
    }
    std::string m_strAddr = "127.0.0.1";
    int m_nPort = 0;
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
        {"session"},
        {"session", "add", "s1", "--user", "u"},  // no --co
        {"session", "add", "s1", "--user", "u", "--co", "c", "--servertype", "x"},
        {"session", "add", "a\\b", "--user", "u", "--co", "c"},
        {"session", "show"},
        {"code", "delete"},
        {"code", "nosuch"},
        {"company", "add", "c1", "novalue"},
        {"company", "add", "c1", "n:int32=abc"},
        {"company", "add", "c1", "n:nosuchtype=1"},
        {"company", "add", "c1", "=1"},
        {"company", "update", "c1"},
        {"company", "type", "c1", "big"},
        {"company", "delete", ""},
        {"ccu", "add", "c1"},
        {"ccu", "add", "c1", "u1", "--useddev", "many"},
        {"ccu", "add", "c1", "u1", "--registertime", "2024-01-02"},
        {"ccu", "show", "c1\\u1", "x"},
        {"login", "add", "alice"},
        {"login", "move", "alice", "b\\c"},
        {"login", "remove", "alice"},
    };
    for (const auto& c : cases) {
        std::string text;
        for (const auto& w : c)
            text += w + " ";
        EXPECT_EQ(Status(c), 2) << text;
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
    ASSERT_EQ(bs_tabledb_open(h, "ops", "", "", 0, 0, m_strAddr.c_str(),
                              static_cast<unsigned short>(m_nPort)),
              BS_OK);
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

TEST_P(BsCtlTest, SessionsAreWrittenListedShownAndDeleted) {
    EXPECT_EQ(Run({"session", "list"}), "session\tuser\tco\tservertype\tclienttype\n");
    ASSERT_EQ(Status({"session", "add", "s1", "--user", "alice", "--co", "c1"}), 0);
    ASSERT_EQ(Status({"session", "add", "s2", "--user", "bob", "--co", "c2", "--servertype", "3",
                      "--clienttype", "-2"}),
              0);
    EXPECT_EQ(Run({"session", "list"}),
              "session\tuser\tco\tservertype\tclienttype\n"
              "s1\talice\tc1\t1\t0\n"
              "s2\tbob\tc2\t3\t-2\n");
    EXPECT_EQ(Run({"session", "show", "s2"}),
              "clienttype\tint32\t-2\nco\tstring\tc2\nservertype\tint32\t3\nuser\tstring\tbob\n");
    int st = -1;
    EXPECT_EQ(Run({"session", "show", "s9"}, &st), "");
    EXPECT_EQ(st, 1);
    EXPECT_EQ(Status({"session", "delete", "s1"}), 0);
    EXPECT_EQ(Status({"session", "delete", "s1"}), 1);
    EXPECT_EQ(Run({"session", "list"}),
              "session\tuser\tco\tservertype\tclienttype\ns2\tbob\tc2\t3\t-2\n");
}

TEST_P(BsCtlTest, VerificationCodesAreTheSubKeysTheLibraryReads) {
    int st = -1;
    EXPECT_EQ(Run({"code", "list"}, &st), "");
    EXPECT_EQ(st, 0);  // a fresh installation simply has none
    EXPECT_EQ(Run({"seed-codes", "AbC1", "x9z"}, &st), "2 codes seeded\n");
    ASSERT_EQ(st, 0);
    EXPECT_EQ(Run({"code", "seed", "k", "zz9"}, &st), "2 codes seeded\n");
    ASSERT_EQ(st, 0);
    void* h = BS_INVALID_HANDLE;
    ASSERT_EQ(bs_treedb_open(h, "Config", "VerifyCode", "", 0x80000, "ccubase", m_strAddr.c_str(),
                             static_cast<unsigned short>(m_nPort)),
              BS_OK);
    std::list<std::string> codes;
    ASSERT_EQ(bs_treedb_get_subkeys(h, codes), BS_OK);
    EXPECT_EQ(codes, std::list<std::string>({"AbC1", "k", "x9z", "zz9"}));
    bs_close_handle(h);
    EXPECT_EQ(Status({"code", "delete", "k", "AbC1"}), 0);
    EXPECT_EQ(Status({"code", "delete", "k"}), 1);
    EXPECT_EQ(Run({"code", "list"}), "x9z\nzz9\n");
}

TEST_P(BsCtlTest, CompaniesAndTheirCcusAreWhatTheLibraryReads) {
    ASSERT_EQ(Status({"company", "add", "c1", "name=Acme Ltd", "maxdev:int32=10", "old=x"}), 0);
    ASSERT_EQ(Status({"company", "add", "c1", "name=Acme Ltd", "maxdev:int32=10"}), 0);
    ASSERT_EQ(Status({"company", "update", "c1", "tel=555"}), 0);
    ASSERT_EQ(Status({"company", "type", "c1", "2"}), 0);
    ASSERT_EQ(Status({"company", "add", "c2"}), 0);
    EXPECT_EQ(Status({"company", "type", "c3", "2"}), 1);
    EXPECT_EQ(Run({"company", "list"}), "c1\nc2\n");
    ASSERT_EQ(Status({"ccu", "add", "c1", "u1", "--registertime", "2024-02-29 23:59:58", "--label",
                      "rack 7", "--useddev", "12", "--connectstat", "1"}),
              0);
    ASSERT_EQ(Status({"ccu", "update", "c1", "u1", "--usedmon", "4"}), 0);
    EXPECT_EQ(Status({"ccu", "add", "nosuch", "u1"}), 1);
    EXPECT_EQ(Run({"company", "show", "c1"}),
              "maxdev\tint32\t10\nname\tstring\tAcme Ltd\nqv_companytype\tint32\t2\n"
              "tel\tstring\t555\nccu\tu1\n");
    EXPECT_EQ(Run({"ccu", "show", "c1", "u1"}),
              "connectstat\t1\nregistertime\t2024-02-29 23:59:58\nlabel\track 7\nuseddev\t12\n"
              "usedmon\t4\n");

    // The library reads the same records.
    CQvHandleLoc loc;
    std::list<std::string> names, ccus;
    ASSERT_EQ(CManageDb::LoadManageCompanyNames(loc, m_strAddr, names, m_nPort), 0);
    CSPropSetObj params;
    ASSERT_EQ(CManageDb::LoadaManageCompany(loc, "c1", params, ccus), 0);
    EXPECT_EQ(params.GetPropertyInt("maxdev", 0), 10);
    EXPECT_EQ(params.GetPropertyInt("qv_companytype", 0), 2);
    CSMCCCU rec;
    ASSERT_EQ(CManageDb::LoadManageCCU(loc, "c1", "u1", rec), 0);
    EXPECT_EQ(rec.m_tmRegister.GetTime(), tarn::TimeFace(2024, 2, 29, 23, 59, 58).GetTime());
    EXPECT_EQ(rec.m_nUsedMon, 4);

    int st = -1;
    EXPECT_EQ(Run({"ccu", "show", "c1", "u2"}, &st), "");
    EXPECT_EQ(st, 1);
    EXPECT_EQ(Status({"ccu", "delete", "c1", "u1"}), 0);
    EXPECT_EQ(Status({"ccu", "delete", "c1", "u1"}), 1);
    EXPECT_EQ(Status({"company", "delete", "c1"}), 0);
    EXPECT_EQ(Status({"company", "delete", "c1"}), 1);
    EXPECT_EQ(Status({"company", "show", "c1"}), 1);
    EXPECT_EQ(Run({"company", "list"}), "c2\n");
}

TEST_P(BsCtlTest, LoginNamesAreAddedMovedAndDeleted) {
    EXPECT_EQ(Run({"login", "list"}), "");
    ASSERT_EQ(Status({"login", "add", "alice", "c1"}), 0);
    ASSERT_EQ(Status({"login", "add", "carol", "c2"}), 0);
    ASSERT_EQ(Status({"login", "add", "e\tve", "c\n4"}), 0);
    ASSERT_EQ(Status({"login", "move", "alice", "bob"}), 0);
    // Control bytes are shown escaped, so every login stays one line of two fields.
    EXPECT_EQ(Run({"login", "list"}), "bob\tc1\ncarol\tc2\ne\\x09ve\tc\\x0a4\n");
    ASSERT_EQ(Status({"login", "delete", "e\tve"}), 0);
    EXPECT_EQ(Status({"login", "move", "bob", "carol"}), 1);   // would take carol over
    EXPECT_EQ(Status({"login", "move", "alice", "dave"}), 1);  // alice is gone
    ASSERT_EQ(Status({"login", "move", "bob", "bob", "c3"}), 0);
    EXPECT_EQ(Run({"login", "show", "bob"}), "c3\n");

    std::string company;
    EXPECT_NE(CManageDb::LoginNameGetCompanyId(m_strAddr, "alice", company, m_nPort), 0);
    ASSERT_EQ(CManageDb::LoginNameGetCompanyId(m_strAddr, "bob", company, m_nPort), 0);
    EXPECT_EQ(company, "c3");

    EXPECT_EQ(Status({"login", "delete", "carol"}), 0);
    EXPECT_EQ(Status({"login", "delete", "carol"}), 1);
    EXPECT_EQ(Status({"login", "show", "carol"}), 1);
    EXPECT_EQ(Run({"login", "list"}), "bob\tc3\n");
}

WS_ON_EVERY_ENGINE(BsCtlTest);
