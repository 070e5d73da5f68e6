// A page handler's use of the management records through libwebsession.so's exported names only:
// a company with a CCU and a login, written and read back as the console does.
#include <gtest/gtest.h>

#include <list>
#include <map>
#include <string>

#include "db/PropSetObj.h"
#include "db/QvHandle.h"
#include "manage/ManageDB.h"

TEST(ManageSharedTest, CompanyCcuAndLoginThroughTheSharedLibrary) {
    const std::string addr = "127.0.0.1";
    const int port = 27600;
    CQvHandleLoc loc;
    CSPropSetObj params;
    params.SetPropertyString("name", "Acme");
    params.SetPropertyInt("maxmon", 40);
    ASSERT_EQ(CManageDb::AddCompanyParam(loc, addr, "c1", params, port), 0);
    CSMCCCU rec;
    rec.m_nConnectStat = 1;
    rec.m_tmRegister = tarn::TimeFace(2023, 11, 5, 6, 7, 8);
    rec.m_strLabel = "edge";
    rec.m_nUsedMon = 17;
    ASSERT_EQ(CManageDb::UpdateCompanyCCU(loc, "c1", "u1", rec, port), 0);
    ASSERT_EQ(CManageDb::SetCompanyType(addr, "c1", 4, port), 0);
    ASSERT_EQ(CManageDb::AddLoginName(addr, "alice", "c1", port), 0);

    CQvHandleLoc page;
    std::list<std::string> names, ccus;
    ASSERT_EQ(CManageDb::LoadManageCompanyNames(page, addr, names, port), 0);
    ASSERT_EQ(names, std::list<std::string>({"c1"}));
    CSPropSetObj got;
    ASSERT_EQ(CManageDb::LoadaManageCompany(page, "c1", got, ccus), 0);
    EXPECT_EQ(got.GetPropertyString("name", ""), "Acme");
    EXPECT_EQ(got.GetPropertyInt("maxmon", 0), 40);
    EXPECT_EQ(got.GetPropertyInt("qv_companytype", 0), 4);
    ASSERT_EQ(ccus, std::list<std::string>({"u1"}));
    CSMCCCU back;
    ASSERT_EQ(CManageDb::LoadManageCCU(page, "c1", "u1", back), 0);
    EXPECT_EQ(back.m_nConnectStat, 1);
    EXPECT_EQ(back.m_tmRegister.GetTime(), rec.m_tmRegister.GetTime());
    EXPECT_EQ(back.m_strLabel, "edge");
    EXPECT_EQ(back.m_nUsedDev, -1);
    EXPECT_EQ(back.m_nUsedMon, 17);

    std::string company;
    ASSERT_EQ(CManageDb::LoginNameGetCompanyId(addr, "alice", company, port), 0);
    EXPECT_EQ(company, "c1");
    std::map<std::string, std::string> logins;
    ASSERT_EQ(CManageDb::LoadLoginName(addr, logins, port), 0);
    EXPECT_EQ(logins, (std::map<std::string, std::string>{{"alice", "c1"}}));
    EXPECT_EQ(CManageDb::DeleteCompany(addr, "c1", port), 0);
    EXPECT_EQ(CManageDb::DeleteLoginNameOfCompany(addr, "c1", port), 0);
    ASSERT_EQ(CManageDb::LoadLoginName(addr, logins, port), 0);
    EXPECT_TRUE(logins.empty());
}
