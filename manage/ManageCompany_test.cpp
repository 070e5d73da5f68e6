// Tests of the company records on the embedded engine: replacing, updating, deleting, the company
// type, loading, the caller's transaction and the refusal of names that are not single keys.
#include <gtest/gtest.h>

#include <list>
#include <string>

#include "bsapi/bsapi.h"
#include "db/PropSetObj.h"
#include "db/QvHandle.h"
#include "manage/ManageDB.h"

using Names = std::list<std::string>;

class ManageCompanyTest : public ::testing::Test {
protected:
    void SetUp() override {
        static int next = 27000;
        m_nPort = next++;  // a data directory of its own per test
    }
    int Add(CQvHandleLoc& loc, const std::string& id, const CSPropSetObj& params) {
        return CManageDb::AddCompanyParam(loc, m_strAddr, id, params, m_nPort);
    }
    int Update(CQvHandleLoc& loc, const std::string& id, const CSPropSetObj& params) {
        return CManageDb::UpdateCompanyParam(loc, m_strAddr, id, params, m_nPort);
    }
    Names List(CQvHandleLoc& loc) {
        Names names{"stale"};
        EXPECT_EQ(CManageDb::LoadManageCompanyNames(loc, m_strAddr, names, m_nPort), 0);
        return names;
    }
    // The properties of one company as "name=value;" text in name order, and its CCUs.
    std::string Load(const std::string& id, Names* ccus = nullptr) {
        CQvHandleLoc loc;
        List(loc);
        CSPropSetObj params;
        Names subs;
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
    const std::string kMissing = "error " + std::to_string(BS_ERR_NO_SUBKEY);
    std::string m_strAddr = "127.0.0.1";
    int m_nPort = 0;
};

// One locator serves the list, the writes and the loads in a row, as a page handler uses it.
TEST_F(ManageCompanyTest, AddReplacesUpdateMergesAndCreates) {
    CQvHandleLoc loc;
    EXPECT_TRUE(List(loc).empty());  // a fresh installation has the level but no company
    ASSERT_EQ(Add(loc, "c1", Params({{"name", "Acme"}, {"maxdev", "10"}})), 0);
    CSMCCCU rec;
    ASSERT_EQ(CManageDb::AddCompanyCCU(loc, "c1", "u1", rec, m_nPort), 0);
    Names ccus;
    EXPECT_EQ(Load("c1", &ccus), "maxdev=10;name=Acme;");
    EXPECT_EQ(ccus, Names({"u1"}));
    ASSERT_EQ(Add(loc, "c1", Params({{"city", "Oslo"}})), 0);  // replaced: CCUs go too
    EXPECT_EQ(Load("c1", &ccus), "city=Oslo;");
    EXPECT_TRUE(ccus.empty());

    CQvHandleLoc fresh;  // an update allocates a locator it is given empty
    ASSERT_EQ(Update(fresh, "a", Params({{"name", "Beta"}})), 0);
    ASSERT_EQ(CManageDb::SetCompanyType(m_strAddr, "a", 3, m_nPort), 0);
    ASSERT_EQ(Update(loc, "a", Params({{"name", "Beta2"}, {"tel", "555"}})), 0);
    EXPECT_EQ(List(loc), Names({"a", "c1"}));
    CSPropSetObj params;
    ASSERT_EQ(CManageDb::LoadaManageCompany(loc, "c1", params, ccus), 0);
    EXPECT_EQ(params.GetPropertyString("city", ""), "Oslo");
    ASSERT_EQ(CManageDb::LoadaManageCompany(loc, "a", params, ccus), 0);
    EXPECT_EQ(params.GetPropertyString("tel", ""), "555");
    EXPECT_EQ(Load("a"), "name=Beta2;qv_companytype=3;tel=555;");

    CQvHandleLoc unallocated;
    params.SetPropertyString("stale", "1");
    EXPECT_NE(CManageDb::LoadaManageCompany(unallocated, "c1", params, ccus), 0);
    EXPECT_EQ(params.GetPropertyString("stale", ""), "1");  // untouched on failure
}

TEST_F(ManageCompanyTest, DeletingRemovesTheCompanyWithItsCcusAndUnknownIdsSucceed) {
    EXPECT_EQ(CManageDb::DeleteCompany(m_strAddr, "nobody", m_nPort), 0);
    CQvHandleLoc loc;
    ASSERT_EQ(Add(loc, "c3", Params({{"n", "x"}})), 0);
    ASSERT_EQ(Add(loc, "c4", Params({{"n", "y"}})), 0);
    CSMCCCU rec;
    ASSERT_EQ(CManageDb::AddCompanyCCU(loc, "c3", "u9", rec, m_nPort), 0);
    EXPECT_EQ(CManageDb::DeleteCompany(m_strAddr, "c3", m_nPort), 0);
    EXPECT_EQ(CManageDb::DeleteCompany(m_strAddr, "c3", m_nPort), 0);
    EXPECT_EQ(List(loc), Names({"c4"}));
    EXPECT_EQ(Load("c3"), kMissing);
    // The type of a company that is not there is refused instead of creating a bare key.
    EXPECT_EQ(CManageDb::SetCompanyType(m_strAddr, "c3", 1, m_nPort), BS_ERR_NO_SUBKEY);
    EXPECT_EQ(List(loc), Names({"c4"}));
}

TEST_F(ManageCompanyTest, NamesThatAreNotSingleKeysAreRefusedAndChangeNothing) {
    CQvHandleLoc loc;
    ASSERT_EQ(Add(loc, "c5", Params({{"n", "x"}})), 0);
    for (const std::string bad : {"", "c5\\u1", "\\"}) {
        SCOPED_TRACE("id '" + bad + "'");
        CQvHandleLoc l;
        EXPECT_EQ(Add(l, bad, Params({{"n", "z"}})), BS_ERR_BAD_NAME);
        EXPECT_EQ(Update(l, bad, Params({{"n", "z"}})), BS_ERR_BAD_NAME);
        EXPECT_EQ(CManageDb::DeleteCompany(m_strAddr, bad, m_nPort), BS_ERR_BAD_NAME);
        EXPECT_EQ(CManageDb::SetCompanyType(m_strAddr, bad, 1, m_nPort), BS_ERR_BAD_NAME);
        CSPropSetObj params;
        Names ccus;
        EXPECT_EQ(CManageDb::LoadaManageCompany(loc, bad, params, ccus), BS_ERR_BAD_NAME);
    }
    Names ccus;
    EXPECT_EQ(Load("c5", &ccus), "n=x;");
    EXPECT_TRUE(ccus.empty());
}

TEST_F(ManageCompanyTest, TheCallersTransactionSpansTheCompanyWrites) {
    CQvHandleLoc seed;
    ASSERT_EQ(Add(seed, "c6", Params({{"n", "old"}})), 0);
    for (bool commit : {false, true}) {
        SCOPED_TRACE(commit ? "commit" : "rollback");
        CQvHandleLoc loc;
        List(loc);
        ASSERT_EQ(loc.Treedb_BeginTransaction(), 0);
        ASSERT_EQ(Update(loc, "c6", Params({{"n", "new"}})), 0);
        ASSERT_EQ(Add(loc, "c7", Params({{"n", "x"}})), 0);
        // Still inside the caller's transaction: ending it must find it open.
        ASSERT_EQ(commit ? loc.Treedb_CommitTransaction() : loc.Treedb_RollbackTransaction(), 0);
        EXPECT_EQ(Load("c6"), commit ? "n=new;" : "n=old;");
        EXPECT_EQ(Load("c7"), commit ? "n=x;" : kMissing);
    }
}
