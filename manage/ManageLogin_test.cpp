// Tests of the login names on the embedded engine: resolving, renaming, deleting one or all of a
// company's, replacing in a batch, names that are not single keys, and several threads changing
// logins at once (whose result, dozens of logins, is loaded whole).
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <thread>
#include <vector>

#include "bsapi/bsapi.h"
#include "manage/ManageDB.h"

class ManageLoginTest : public ::testing::Test {
protected:
    void SetUp() override {
        static int next = 27400;
        m_nPort = next++;
    }
    // The company of a login, or "error <code>".
    std::string Company(const std::string& login) {
        std::string company = "unset";
        int rc = CManageDb::LoginNameGetCompanyId(m_strAddr, login, company, m_nPort);
        return rc == 0 ? company : "error " + std::to_string(rc);
    }
    std::map<std::string, std::string> All() {
        std::map<std::string, std::string> logins{{"stale", "x"}};
        EXPECT_EQ(CManageDb::LoadLoginName(m_strAddr, logins, m_nPort), 0);
        return logins;
    }
    std::string m_strAddr = "127.0.0.1";
    int m_nPort = 0;
};

TEST_F(ManageLoginTest, ALoginResolvesToItsCompanyAndRenamingMovesIt) {
    const std::string missing = "error " + std::to_string(BS_ERR_NO_SUBKEY);
    EXPECT_TRUE(All().empty());  // the stale entry goes even when there is no login
    EXPECT_EQ(Company("alice"), missing);
    ASSERT_EQ(CManageDb::AddLoginName(m_strAddr, "alice", "c1", m_nPort), 0);
    EXPECT_EQ(Company("alice"), "c1");
    ASSERT_EQ(CManageDb::EditLoginName(m_strAddr, "alice", "bob", "c1", m_nPort), 0);
    EXPECT_EQ(Company("alice"), missing);
    EXPECT_EQ(Company("bob"), "c1");
    // Renaming a login that is gone still makes the new one.
    ASSERT_EQ(CManageDb::EditLoginName(m_strAddr, "alice", "carol", "c2", m_nPort), 0);
    EXPECT_EQ(Company("carol"), "c2");
    // Adding an existing login moves it to the new company.
    ASSERT_EQ(CManageDb::AddLoginName(m_strAddr, "bob", "c3", m_nPort), 0);
    EXPECT_EQ(All(), (std::map<std::string, std::string>{{"bob", "c3"}, {"carol", "c2"}}));
}

TEST_F(ManageLoginTest, DeletingOneLoginOrAllOfACompany) {
    EXPECT_EQ(CManageDb::DeleteLoginName(m_strAddr, "nobody", m_nPort), 0);
    for (const auto& kv : std::map<std::string, std::string>{
             {"a1", "c1"}, {"a2", "c1"}, {"b1", "c10"}, {"c1", "c2"}, {"d1", "C1"}}) {
        ASSERT_EQ(CManageDb::AddLoginName(m_strAddr, kv.first, kv.second, m_nPort), 0);
    }
    EXPECT_EQ(CManageDb::DeleteLoginNameOfCompany(m_strAddr, "c1", m_nPort), 0);
    // Exact comparison: neither "c10" nor "C1" nor the login named "c1" goes.
    EXPECT_EQ(All(),
              (std::map<std::string, std::string>{{"b1", "c10"}, {"c1", "c2"}, {"d1", "C1"}}));
    EXPECT_EQ(CManageDb::DeleteLoginNameOfCompany(m_strAddr, "c1", m_nPort), 0);
    EXPECT_EQ(CManageDb::DeleteLoginName(m_strAddr, "c1", m_nPort), 0);
    EXPECT_EQ(CManageDb::DeleteLoginName(m_strAddr, "c1", m_nPort), 0);
    EXPECT_EQ(Company("ghost"), "error " + std::to_string(BS_ERR_NO_SUBKEY));  // creates nothing
    EXPECT_EQ(All(), (std::map<std::string, std::string>{{"b1", "c10"}, {"d1", "C1"}}));
}

TEST_F(ManageLoginTest, EditAllReplacesEachNamedLoginAndLeavesTheRest) {
    ASSERT_EQ(CManageDb::AddLoginName(m_strAddr, "keep", "c1", m_nPort), 0);
    ASSERT_EQ(CManageDb::AddLoginName(m_strAddr, "move", "c1", m_nPort), 0);
    std::map<std::string, std::string> batch{{"move", "c2"}, {"new", "c3"}};
    ASSERT_EQ(CManageDb::EditAllLoginName(m_strAddr, batch, m_nPort), 0);
    EXPECT_EQ(All(),
              (std::map<std::string, std::string>{{"keep", "c1"}, {"move", "c2"}, {"new", "c3"}}));

    // One bad name refuses the whole batch before anything changes.
    std::map<std::string, std::string> bad{{"aaa", "c9"}, {"x\\y", "c9"}};
    EXPECT_EQ(CManageDb::EditAllLoginName(m_strAddr, bad, m_nPort), BS_ERR_BAD_NAME);
    EXPECT_EQ(All().count("aaa"), 0u);
}

TEST_F(ManageLoginTest, NamesThatAreNotSingleKeysAreRefused) {
    ASSERT_EQ(CManageDb::AddLoginName(m_strAddr, "alice", "c1", m_nPort), 0);
    std::string company;
    for (const std::string bad : {"", "alice\\x", "\\"}) {
        SCOPED_TRACE("name '" + bad + "'");
        EXPECT_EQ(CManageDb::AddLoginName(m_strAddr, bad, "c1", m_nPort), BS_ERR_BAD_NAME);
        EXPECT_EQ(CManageDb::DeleteLoginName(m_strAddr, bad, m_nPort), BS_ERR_BAD_NAME);
        EXPECT_EQ(CManageDb::LoginNameGetCompanyId(m_strAddr, bad, company, m_nPort),
                  BS_ERR_BAD_NAME);
        EXPECT_EQ(CManageDb::EditLoginName(m_strAddr, "alice", bad, "c1", m_nPort),
                  BS_ERR_BAD_NAME);
    }
    EXPECT_EQ(CManageDb::DeleteLoginNameOfCompany(m_strAddr, "", m_nPort), BS_ERR_BAD_NAME);
    EXPECT_EQ(All(), (std::map<std::string, std::string>{{"alice", "c1"}}));
}

TEST_F(ManageLoginTest, ThreadsChangingTheirOwnLoginsLoseNothing) {
    // Each call takes a locator of its own from the shared pools, so threads need no lock here.
    const int kThreads = 4, kEach = 12;
    std::vector<std::thread> threads;
    std::vector<int> failures(kThreads, 0);
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([this, t, &failures] {
            const std::string co = "co" + std::to_string(t);
            for (int i = 0; i < kEach; ++i) {
                const std::string name = "t" + std::to_string(t) + "_" + std::to_string(i);
                failures[t] += CManageDb::AddLoginName(m_strAddr, name, co, m_nPort) != 0;
                if (i % 3 == 0)
                    failures[t] +=
                        CManageDb::EditLoginName(m_strAddr, name, name + "r", co, m_nPort) != 0;
            }
            if (t == 0)
                failures[t] += CManageDb::DeleteLoginNameOfCompany(m_strAddr, co, m_nPort) != 0;
        });
    }
    for (std::thread& th : threads)
        th.join();
    EXPECT_EQ(failures, std::vector<int>(kThreads, 0));
    std::map<std::string, std::string> want;
    for (int t = 1; t < kThreads; ++t) {
        for (int i = 0; i < kEach; ++i) {
            std::string name = "t" + std::to_string(t) + "_" + std::to_string(i);
            want[i % 3 == 0 ? name + "r" : name] = "co" + std::to_string(t);
        }
    }
    EXPECT_EQ(All(), want);
}
