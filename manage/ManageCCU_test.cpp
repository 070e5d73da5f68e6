// Tests of the CCU records below a company on the embedded engine: round trips to the second,
// creation by update, replacing, defaults of absent properties, deleting, and failures that
// leave the record alone.
#include <gtest/gtest.h>

#include <list>
#include <string>

#include "bsapi/bsapi.h"
#include "db/PropSetObj.h"
#include "db/QvHandle.h"
#include "manage/ManageDB.h"

using Names = std::list<std::string>;

class ManageCcuTest : public ::testing::Test {
protected:
    void SetUp() override {
        static int next = 27200;
        m_nPort = next++;
        CSPropSetObj params;
        params.SetPropertyString("name", "Acme");
        ASSERT_EQ(CManageDb::AddCompanyParam(m_loc, m_strAddr, "c1", params, m_nPort), 0);
    }
    static CSMCCCU Record(int stat, const tarn::TimeFace& when, const std::string& label, int dev,
                          int mon) {
        CSMCCCU rec;
        rec.m_nConnectStat = stat;
        rec.m_tmRegister = when;
        rec.m_strLabel = label;
        rec.m_nUsedDev = dev;
        rec.m_nUsedMon = mon;
        return rec;
    }
    static void ExpectSame(const CSMCCCU& got, const CSMCCCU& want) {
        EXPECT_EQ(got.m_nConnectStat, want.m_nConnectStat);
        EXPECT_EQ(got.m_tmRegister.GetTime(), want.m_tmRegister.GetTime());
        EXPECT_EQ(got.m_strLabel, want.m_strLabel);
        EXPECT_EQ(got.m_nUsedDev, want.m_nUsedDev);
        EXPECT_EQ(got.m_nUsedMon, want.m_nUsedMon);
    }
    // Writes one property straight into a CCU's key, beside the record.
    void WriteRaw(const std::string& path, const std::string& name, const std::string& value) {
        CQvHandleLoc loc;
        ASSERT_EQ(loc.Treedb_Alloc(m_strAddr, "saas", "company", "", 0x80000, m_nPort), 0);
        ASSERT_EQ(loc.Treedb_ReopenSubKey(path, -1), 0);
        ASSERT_EQ(loc.Treedb_WriteKeyString(name, value), 0);
    }
    // The CCUs of company c1.
    Names Ccus() {
        CSPropSetObj params;
        Names ccus;
        EXPECT_EQ(CManageDb::LoadaManageCompany(m_loc, "c1", params, ccus), 0);
        return ccus;
    }
    std::string m_strAddr = "127.0.0.1";
    int m_nPort = 0;
    CQvHandleLoc m_loc;  // allocated on "saas" by SetUp, as page handlers hold theirs
};

TEST_F(ManageCcuTest, RecordsRoundTripToTheSecond) {
    // Odd seconds and a date near the end of a month catch a lost or shifted field.
    const CSMCCCU cases[] = {
        Record(1, tarn::TimeFace(2024, 2, 29, 23, 59, 59), "rack 7", 12, 3),
        Record(0, tarn::TimeFace(2001, 12, 31, 0, 0, 1), "", 0, 0),
        Record(-4, tarn::TimeFace(2030, 7, 1, 13, 14, 15), "caf\xc3\xa9 \\ east", 99999, 1),
    };
    int n = 0;
    for (const CSMCCCU& want : cases) {
        const std::string ccu = "u" + std::to_string(n++);
        SCOPED_TRACE(ccu);
        CSMCCCU copy = want;
        ASSERT_EQ(CManageDb::AddCompanyCCU(m_loc, "c1", ccu, copy, m_nPort), 0);
        CSMCCCU got;
        ASSERT_EQ(CManageDb::LoadManageCCU(m_loc, "c1", ccu, got), 0);
        ExpectSame(got, want);
    }
    // Deleting one leaves its siblings; deleting it again or under an unknown company succeeds.
    EXPECT_EQ(CManageDb::DeleteCompanyCCU(m_strAddr, "c1", "u1", m_nPort), 0);
    EXPECT_EQ(CManageDb::DeleteCompanyCCU(m_strAddr, "c1", "u1", m_nPort), 0);
    EXPECT_EQ(CManageDb::DeleteCompanyCCU(m_strAddr, "ghost", "u1", m_nPort), 0);
    EXPECT_EQ(Ccus(), Names({"u0", "u2"}));
}

TEST_F(ManageCcuTest, UpdateOfAMissingCcuCreatesItAndKeepsOtherProperties) {
    CSMCCCU want = Record(2, tarn::TimeFace(2025, 6, 30, 8, 9, 10), "new", 5, 6);
    ASSERT_EQ(CManageDb::UpdateCompanyCCU(m_loc, "c1", "fresh", want, m_nPort), 0);
    CSMCCCU got;
    ASSERT_EQ(CManageDb::LoadManageCCU(m_loc, "c1", "fresh", got), 0);
    ExpectSame(got, want);

    WriteRaw("c1\\fresh", "note", "kept");
    want.m_nUsedDev = 7;
    ASSERT_EQ(CManageDb::UpdateCompanyCCU(m_loc, "c1", "fresh", want, m_nPort), 0);
    ASSERT_EQ(CManageDb::LoadManageCCU(m_loc, "c1", "fresh", got), 0);
    EXPECT_EQ(got.m_nUsedDev, 7);
    EXPECT_EQ(m_loc.Treedb_GetPropertyString("note", ""), "kept");

    // Adding replaces the key: the extra property goes.
    ASSERT_EQ(CManageDb::AddCompanyCCU(m_loc, "c1", "fresh", want, m_nPort), 0);
    ASSERT_EQ(CManageDb::LoadManageCCU(m_loc, "c1", "fresh", got), 0);
    EXPECT_EQ(m_loc.Treedb_GetPropertyString("note", "gone"), "gone");
    EXPECT_EQ(Ccus(), Names({"fresh"}));
}

TEST_F(ManageCcuTest, AbsentPropertiesGiveTheirDefaultsAndAnUnreadableTimeIsKept) {
    CQvHandleLoc loc;
    ASSERT_EQ(loc.Treedb_Alloc(m_strAddr, "saas", "company", "", 0x80000, m_nPort), 0);
    ASSERT_EQ(loc.Treedb_AppendSubKey("c1", "bare", 2), 0);
    WriteRaw("c1\\bare", "qv_registertime", "yesterday");
    WriteRaw("c1\\bare", "qvlabel", "only label");

    CSMCCCU got = Record(9, tarn::TimeFace(1000000L), "old", 9, 9);
    ASSERT_EQ(CManageDb::LoadManageCCU(m_loc, "c1", "bare", got), 0);
    ExpectSame(got, Record(0, tarn::TimeFace(1000000L), "only label", -1, -1));
}

TEST_F(ManageCcuTest, FailuresLeaveTheRecordAndTheTreeAlone) {
    CSMCCCU rec = Record(3, tarn::TimeFace(2020, 1, 2, 3, 4, 5), "x", 1, 2);
    CSMCCCU got = Record(7, tarn::TimeFace(500L), "untouched", 7, 7);
    EXPECT_EQ(CManageDb::LoadManageCCU(m_loc, "c1", "nosuch", got), BS_ERR_NO_SUBKEY);
    ExpectSame(got, Record(7, tarn::TimeFace(500L), "untouched", 7, 7));

    // No CCU is made for a company that is not there.
    EXPECT_EQ(CManageDb::UpdateCompanyCCU(m_loc, "ghost", "u1", rec, m_nPort), BS_ERR_NO_SUBKEY);
    EXPECT_EQ(CManageDb::AddCompanyCCU(m_loc, "ghost", "u1", rec, m_nPort), BS_ERR_NO_SUBKEY);
    Names names;
    ASSERT_EQ(CManageDb::LoadManageCompanyNames(m_loc, m_strAddr, names, m_nPort), 0);
    EXPECT_EQ(names, Names({"c1"}));

    for (const std::string bad : {"", "a\\b"}) {
        EXPECT_EQ(CManageDb::AddCompanyCCU(m_loc, "c1", bad, rec, m_nPort), BS_ERR_BAD_NAME);
        EXPECT_EQ(CManageDb::UpdateCompanyCCU(m_loc, "c1", bad, rec, m_nPort), BS_ERR_BAD_NAME);
        EXPECT_EQ(CManageDb::LoadManageCCU(m_loc, bad, "u1", got), BS_ERR_BAD_NAME);
    }
    EXPECT_TRUE(Ccus().empty());
}
