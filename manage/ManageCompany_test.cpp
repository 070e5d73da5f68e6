// Tests of the company records on the embedded engine: replacing, updating, deleting, the company
// type, loading, and the refusal of names that are not single keys.
#include <gtest/gtest.h>

#include <list>
#include <string>

#include "bsapi/bsapi.h"
#include "db/PropSetObj.h"
#include "db/QvHandle.h"
#include "manage/ManageDB.h"

class ManageCompanyTest : public ::testing::Test {
protected:
    void SetUp() override {
        static int next = 27000;
        m_nPort = next++;  // a data directory of its own per test
    }
    // The properties of one company as "name=value;" text in name order, and its CCUs.
    std::string Load(const std::string& id, std::list<std::string>* ccus = nullptr) {
        CQvHandleLoc loc;
        std::list<std::string> names;
        EXPECT_EQ(CManageDb::LoadManageCompanyNames(loc, m_strAddr, names, m_nPort), 0);
        CSPropSetObj params;
        std::list<std::string> subs;
        int rc = CManageDb::LoadaManageCompany(loc, id, params, subs);
        if (rc != 0)
            return "error " + std::to_string(rc);
        if (ccus != nullptr)
            *ccus = subs;
        CSPropSetObj::PropMap props;
        params.GetPropSet(props);
        std::string text;
        for (const auto& kv : props)
            text += kv.first + "=" + kv.second.GetText() + ";";
        return text;
    }
    static CSPropSetObj Params(std::initializer_list<std::pair<const char*, const char*>> pairs) {
        CSPropSetObj set;
        for (const auto& p : pairs)
            set.SetPropertyString(p.first, p.second);
        return set;
    }
    std::string m_strAddr = "127.0.0.1";
    int m_nPort = 0;
};

TEST_F(ManageCompanyTest, ReplacingLeavesOnlyTheNewParametersAndNoCcus) {
    CQvHandleLoc loc;
    ASSERT_EQ(CManageDb::AddCompanyParam(loc, m_strAddr, "c1",
                                         Params({{"name", "Acme"}, {"maxdev", "10"}}), m_nPort),
              0);
    CSMCCCU rec;
    ASSERT_EQ(CManageDb::AddCompanyCCU(loc, "c1", "u1", rec, m_nPort), 0);
    std::list<std::string> ccus;
    EXPECT_EQ(Load("c1", &ccus), "maxdev=10;name=Acme;");
    EXPECT_EQ(ccus, std::list<std::string>({"u1"}));

    CQvHandleLoc again;
    ASSERT_EQ(
        CManageDb::AddCompanyParam(again, m_strAddr, "c1", Params({{"city", "Oslo"}}), m_nPort), 0);
    EXPECT_EQ(Load("c1", &ccus), "city=Oslo;");
    EXPECT_TRUE(ccus.empty());
}

TEST_F(ManageCompanyTest, UpdatingKeepsOtherPropertiesAndCreatesAMissingCompany) {
    CQvHandleLoc first;
    ASSERT_EQ(
        CManageDb::UpdateCompanyParam(first, m_strAddr, "c2", Params({{"name", "Beta"}}), m_nPort),
        0);
    EXPECT_EQ(Load("c2"), "name=Beta;");
    ASSERT_EQ(CManageDb::SetCompanyType(m_strAddr, "c2", 3, m_nPort), 0);
    CQvHandleLoc second;
    ASSERT_EQ(CManageDb::UpdateCompanyParam(second, m_strAddr, "c2",
                                            Params({{"name", "Beta2"}, {"tel", "555"}}), m_nPort),
              0);
    EXPECT_EQ(Load("c2"), "name=Beta2;qv_companytype=3;tel=555;");
}

TEST_F(ManageCompanyTest, OneLocatorListsLoadsAndWritesInARow) {
    CQvHandleLoc loc;
    std::list<std::string> names;
    ASSERT_EQ(CManageDb::LoadManageCompanyNames(loc, m_strAddr, names, m_nPort), 0);
    EXPECT_TRUE(names.empty());  // a fresh installation has the level but no company
    ASSERT_EQ(CManageDb::AddCompanyParam(loc, m_strAddr, "b", Params({{"k", "1"}}), m_nPort), 0);
    ASSERT_EQ(CManageDb::UpdateCompanyParam(loc, m_strAddr, "a", Params({{"k", "2"}}), m_nPort), 0);
    ASSERT_EQ(CManageDb::LoadManageCompanyNames(loc, m_strAddr, names, m_nPort), 0);
    EXPECT_EQ(names, std::list<std::string>({"a", "b"}));
    CSPropSetObj params;
    std::list<std::string> ccus;
    ASSERT_EQ(CManageDb::LoadaManageCompany(loc, "b", params, ccus), 0);
    EXPECT_EQ(params.GetPropertyString("k", ""), "1");
    ASSERT_EQ(CManageDb::LoadaManageCompany(loc, "a", params, ccus), 0);
    EXPECT_EQ(params.GetPropertyString("k", ""), "2");
}

TEST_F(ManageCompanyTest, DeletingRemovesTheCompanyWithItsCcusAndUnknownIdsSucceed) {
    EXPECT_EQ(CManageDb::DeleteCompany(m_strAddr, "nobody", m_nPort), 0);
    CQvHandleLoc loc;
    ASSERT_EQ(CManageDb::AddCompanyParam(loc, m_strAddr, "c3", Params({{"n", "x"}}), m_nPort), 0);
    ASSERT_EQ(CManageDb::AddCompanyParam(loc, m_strAddr, "c4", Params({{"n", "y"}}), m_nPort), 0);
    CSMCCCU rec;
    ASSERT_EQ(CManageDb::AddCompanyCCU(loc, "c3", "u9", rec, m_nPort), 0);
    EXPECT_EQ(CManageDb::DeleteCompany(m_strAddr, "c3", m_nPort), 0);
    EXPECT_EQ(CManageDb::DeleteCompany(m_strAddr, "c3", m_nPort), 0);
    CQvHandleLoc check;
    std::list<std::string> names;
    ASSERT_EQ(CManageDb::LoadManageCompanyNames(check, m_strAddr, names, m_nPort), 0);
    EXPECT_EQ(names, std::list<std::string>({"c4"}));
    EXPECT_EQ(Load("c3"), "error " + std::to_string(BS_ERR_NO_SUBKEY));
    // The type of a company that is not there is refused instead of creating a bare key.
    EXPECT_EQ(CManageDb::SetCompanyType(m_strAddr, "c3", 1, m_nPort), BS_ERR_NO_SUBKEY);
    ASSERT_EQ(CManageDb::LoadManageCompanyNames(check, m_strAddr, names, m_nPort), 0);
    EXPECT_EQ(names, std::list<std::string>({"c4"}));
}

TEST_F(ManageCompanyTest, NamesThatAreNotSingleKeysAreRefusedAndChangeNothing) {
    CQvHandleLoc loc;
    ASSERT_EQ(CManageDb::AddCompanyParam(loc, m_strAddr, "c5", Params({{"n", "x"}}), m_nPort), 0);
    for (const std::string bad : {"", "c5\\u1", "\\"}) {
        SCOPED_TRACE("id '" + bad + "'");
        CQvHandleLoc l;
        EXPECT_EQ(CManageDb::AddCompanyParam(l, m_strAddr, bad, Params({{"n", "z"}}), m_nPort),
                  BS_ERR_BAD_NAME);
        EXPECT_EQ(CManageDb::UpdateCompanyParam(l, m_strAddr, bad, Params({{"n", "z"}}), m_nPort),
                  BS_ERR_BAD_NAME);
        EXPECT_EQ(CManageDb::DeleteCompany(m_strAddr, bad, m_nPort), BS_ERR_BAD_NAME);
        EXPECT_EQ(CManageDb::SetCompanyType(m_strAddr, bad, 1, m_nPort), BS_ERR_BAD_NAME);
        CSPropSetObj params;
        std::list<std::string> ccus;
        EXPECT_EQ(CManageDb::LoadaManageCompany(loc, bad, params, ccus), BS_ERR_BAD_NAME);
    }
    std::list<std::string> ccus;
    EXPECT_EQ(Load("c5", &ccus), "n=x;");
    EXPECT_TRUE(ccus.empty());
}

TEST_F(ManageCompanyTest, LoadingWithoutAllocatedLocatorFails) {
    CQvHandleLoc loc;
    CSPropSetObj params;
    params.SetPropertyString("stale", "1");
    std::list<std::string> ccus;
    EXPECT_NE(CManageDb::LoadaManageCompany(loc, "c1", params, ccus), 0);
    EXPECT_EQ(params.GetPropertyString("stale", ""), "1");  // untouched on failure
}

TEST_F(ManageCompanyTest, TheCallersTransactionSpansTheCompanyWrites) {
    CQvHandleLoc seed;
    ASSERT_EQ(CManageDb::AddCompanyParam(seed, m_strAddr, "c6", Params({{"n", "old"}}), m_nPort),
              0);
    for (bool commit : {false, true}) {
        SCOPED_TRACE(commit ? "commit" : "rollback");
        CQvHandleLoc loc;
        std::list<std::string> names;
        ASSERT_EQ(CManageDb::LoadManageCompanyNames(loc, m_strAddr, names, m_nPort), 0);
        ASSERT_EQ(loc.Treedb_BeginTransaction(), 0);
        ASSERT_EQ(
            CManageDb::UpdateCompanyParam(loc, m_strAddr, "c6", Params({{"n", "new"}}), m_nPort),
            0);
        ASSERT_EQ(CManageDb::AddCompanyParam(loc, m_strAddr, "c7", Params({{"n", "x"}}), m_nPort),
                  0);
        // Still inside the caller's transaction: ending it must find it open.
        ASSERT_EQ(commit ? loc.Treedb_CommitTransaction() : loc.Treedb_RollbackTransaction(), 0);
        EXPECT_EQ(Load("c6"), commit ? "n=new;" : "n=old;");
        EXPECT_EQ(Load("c7"), commit ? "n=x;" : "error " + std::to_string(BS_ERR_NO_SUBKEY));
    }
}
