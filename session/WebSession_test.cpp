// Tests of the session table: the idle rule and the sweep on a test clock, the per-user counting
// asymmetry, the reuse path, replacement, the start-up load and the wait for InitData.
#include "session/WebSession.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <list>
#include <string>
#include <thread>

#include "common/Clock.h"
#include "tests/support/TestTree.h"

namespace {

// The test clock: TimeFace::GetCurrent() reads tarn::ClockNow(), which reads this once the seam
// is set, so hours pass without sleeping.
std::atomic<time_t> g_now{1700000000};
time_t FakeNow() {
    return g_now.load();
}

const time_t kHour = 3600;
const time_t kMinute = 60;

// Every line of today's session log(s) under the private installation tree.
std::string ReadSessionLogs() {
    const std::string dir = ws_test::InstallRoot() + "/middle/log";
    return ws_test::RunAndCapture("/bin/sh", {"-c", "cat '" + dir + "'/session*"});
}

class WebSessionTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        // Level 10 so that the sweep's detail lines are written too; read once per process.
        ws_test::WriteFile(ws_test::InstallRoot() + "/middle/Conf/middle.ini",
                           "[main]\nloglevel=10\n");
    }
    void SetUp() override {
        g_now = 1700000000;
        tarn::SetClockForTest(&FakeNow);
    }
    void TearDown() override { tarn::SetClockForTest(nullptr); }

    static void Advance(time_t seconds) { g_now += seconds; }

    // A table that has run its start-up load (the persisted store contributes what it holds).
    static void Ready(CGWebSessionColl& table) { table.InitData(); }

    static CGWebSession* Add(CGWebSessionColl& table, std::string id, const std::string& user,
                             const std::string& company, int clientType = 0) {
        return table.AddSession(id, user, company, 1, clientType, "10.0.0.1");
    }
};

TEST_F(WebSessionTest, IdleRuleCountsWholeHoursAboveThree) {
    struct {
        time_t idle;
        bool timedOut;
    } cases[] = {
        {0, false},
        {3 * kHour, false},
        {3 * kHour + 59 * kMinute, false},
        {4 * kHour - 1, false},
        {4 * kHour, true},
        {30 * kHour, true},
    };
    for (const auto& c : cases) {
        g_now = 1700000000;
        CGWebSession record("s", "u", "c", 1, 0, "");
        Advance(c.idle);
        EXPECT_EQ(record.isTimeOut(), c.timedOut) << "idle seconds " << c.idle;
        record.ReCalTime();
        EXPECT_FALSE(record.isTimeOut()) << "ReCalTime restarts the idle time";
    }
}

// The sweep runs on a lookup at most every four hours and takes the sessions idle four whole
// hours; a timed-out session looked up before the sweep is revived.
TEST_F(WebSessionTest, SweepEveryFourHoursTakesSessionsIdleFourHours) {
    CGWebSessionColl table;  // last sweep: now
    Ready(table);
    Add(table, "c", "u", "c");
    Advance(1);
    CGWebSession* b = Add(table, "b", "u", "c");
    Add(table, "a", "u", "c");

    g_now = 1700000000 + 4 * kHour;  // sweep: "c" idle four hours, the others 3 h 59 min 59 s
    EXPECT_EQ(table.LookSession("c"), nullptr);
    EXPECT_EQ(table.GetSessionCount(), 2u);

    g_now = 1700000000 + 5 * kHour;  // "b" is timed out, but the next sweep is 3 h away
    EXPECT_TRUE(b->isTimeOut());
    EXPECT_EQ(table.LookSession("b"), b);  // still returned, and refreshed by the lookup
    EXPECT_FALSE(b->isTimeOut());
    for (time_t later : {1 * kHour, 2 * kHour, 4 * kHour - 1}) {
        g_now = 1700000000 + 4 * kHour + later;
        table.LookSession("none");
        EXPECT_EQ(table.GetSessionCount(), 2u) << "swept too early, " << later << " s after";
    }
    g_now = 1700000000 + 8 * kHour;  // "a" idle 8 h, "b" 3 h
    table.LookSession("none");
    EXPECT_EQ(table.GetSessionCount(), 1u);
    EXPECT_EQ(table.LookSession("b"), b);
    const std::string log = ReadSessionLogs();
    for (const char* gone : {"delete sesssion a\n", "delete sesssion c\n"})
        EXPECT_NE(log.find(gone), std::string::npos) << gone;
    EXPECT_EQ(log.find("delete sesssion b\n"), std::string::npos);
}

TEST_F(WebSessionTest, SweepStopsAfterAnOverlongUserAndCompany) {
    CGWebSessionColl table;
    Ready(table);
    Add(table, "a-long", std::string(600, 'u'), std::string(401, 'c'));  // 1001 bytes
    Add(table, "b-normal", "u", "c");
    Add(table, "c-normal", "v", "c");

    Advance(4 * kHour);
    table.LookSession("none");
    // "a-long" comes first in key order; removing it ends the sweep.
    EXPECT_EQ(table.GetSessionCount(), 2u);
    EXPECT_EQ(table.LookSession("a-long"), nullptr);

    Advance(4 * kHour);
    table.LookSession("none");
    EXPECT_EQ(table.GetSessionCount(), 0u);
}

TEST_F(WebSessionTest, EveryLoginGetsANewSessionBecauseCountsSitUnderTheBareUser) {
    CGWebSessionColl table;
    Ready(table);
    for (int i = 0; i < 15; ++i) {
        std::string id = "s" + std::to_string(i);
        std::string given = id;
        CGWebSession* record = table.AddSession(given, "bob", "acme", 1, 0, "");
        ASSERT_NE(record, nullptr);
        EXPECT_EQ(given, id) << "a login past the limit got an existing session";
        EXPECT_EQ(record->GetSessionId(), id);
    }
    EXPECT_EQ(table.GetSessionCount(), 15u);
    int count = 0;
    ASSERT_TRUE(table.GetUserCount("bob", count));
    EXPECT_EQ(count, 15);
    EXPECT_FALSE(table.GetUserCount("acme_bob", count));
    EXPECT_TRUE(table.CanAddNewSession("bob", "acme"));
}

TEST_F(WebSessionTest, ReusePathHandsBackTheFirstSessionWhenTheCompanyUserKeyIsFull) {
    CGWebSessionColl table;
    Ready(table);
    CGWebSession* k2 = Add(table, "k2", "bob", "acme");
    CGWebSession* k1 = Add(table, "k1", "bob", "acme");
    Add(table, "k0", "bob", "other");  // same user, other company: not a candidate
    // A user whose id equals "acme_bob" fills the counter that bob of acme is tested against.
    for (int i = 0; i < 10; ++i) {
        EXPECT_TRUE(table.CanAddNewSession("bob", "acme")) << i;
        Add(table, "z" + std::to_string(i), "acme_bob", "x");
    }
    EXPECT_FALSE(table.CanAddNewSession("bob", "acme"));
    const time_t k1Access = k1->GetLastAccessTime().GetTime();

    Advance(10 * kMinute);
    std::string id = "fresh";
    CGWebSession* got = table.AddSession(id, "bob", "acme", 1, 0, "");
    EXPECT_EQ(got, k1) << "the first session in id order is handed back";
    EXPECT_EQ(id, "k1");
    EXPECT_EQ(table.GetSessionCount(), 13u);
    EXPECT_EQ(k1->GetLastAccessTime().GetTime(), k1Access) << "reuse does not refresh";
    EXPECT_NE(k2, nullptr);

    // Erasing a session of bob of acme decrements the company-user key, not bob's own count.
    int before = 0;
    ASSERT_TRUE(table.GetUserCount("bob", before));
    table.EraseSession("k2");
    int keyCount = 0;
    ASSERT_TRUE(table.GetUserCount("acme_bob", keyCount));
    EXPECT_EQ(keyCount, 9);
    int after = 0;
    ASSERT_TRUE(table.GetUserCount("bob", after));
    EXPECT_EQ(after, before);
    EXPECT_TRUE(table.CanAddNewSession("bob", "acme"));
}

// The server type is deliberately not stored. A duplicate id replaces the entry, and the old
// record stays readable: records are never freed early. Lookups leave the output alone when the
// id is absent.
TEST_F(WebSessionTest, RecordFieldsReplacementAndLookupsById) {
    CGWebSessionColl table;
    Ready(table);
    std::string id = "dup";
    CGWebSession* first = table.AddSession(id, "alice", "c", 7, 3, "10.1.1.1");
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(first->GetServerType(), 0);
    EXPECT_EQ(first->GetClientType(), 3);
    EXPECT_EQ(first->GetPeerIP(), "10.1.1.1");
    CGWebSession* second = Add(table, "dup", "carol", "cc");
    EXPECT_NE(first, second);
    EXPECT_EQ(table.GetSessionCount(), 1u);
    std::string user = "keep", company = "keep";
    EXPECT_FALSE(table.GetUserIdBySessionId("y", user));
    EXPECT_FALSE(table.GetCompanyIdBySessionId("y", company));
    EXPECT_EQ(user + company, "keepkeep");
    ASSERT_TRUE(table.GetUserIdBySessionId("dup", user));
    EXPECT_TRUE(table.GetCompanyIdBySessionId("dup", company));
    EXPECT_EQ(user + "/" + company, "carol/cc");
    EXPECT_EQ(first->GetUserId(), "alice");
}

TEST_F(WebSessionTest, LogLineCountsTheWholeTable) {
    CGWebSessionColl table;
    Ready(table);
    Add(table, "l1", "logA", "c");
    Add(table, "l2", "logB", "c");
    Add(table, "l3", "logA", "c");
    std::string log = ReadSessionLogs();
    EXPECT_NE(log.find("user=logA count=1\n"), std::string::npos) << log;
    EXPECT_NE(log.find("user=logB count=2\n"), std::string::npos) << log;
    // logA's own count is 2 here; the line shows the table's size.
    EXPECT_NE(log.find("user=logA count=3\n"), std::string::npos) << log;
}

TEST_F(WebSessionTest, StartUpLoadIncrementsAnExistingCompanyUserEntryAndKeepsLiveIds) {
    CGWebSessionColl table;
    CGWebSession* live = Add(table, "p1", "c_u", "z");  // AddSession does not wait for InitData
    std::list<CGWebSession*> loaded = {
        new CGWebSession("p1", "u", "c", 1, 0, ""),
        new CGWebSession("p2", "u", "c", 1, 0, ""),
    };
    EXPECT_FALSE(table.IsInitialised());
    table.InsertLoadedSessions(loaded);
    EXPECT_TRUE(loaded.empty());
    EXPECT_TRUE(table.IsInitialised());
    int count = 0;
    ASSERT_TRUE(table.GetUserCount("c_u", count));
    EXPECT_EQ(count, 3);
    EXPECT_FALSE(table.GetUserCount("u", count));
    EXPECT_EQ(table.LookSession("p1"), live) << "a loaded copy must not displace a live id";
    EXPECT_EQ(table.GetSessionCount(), 2u);
}

TEST_F(WebSessionTest, LookSessionBlocksUntilInitData) {
    CGWebSessionColl table;
    Add(table, "early", "u", "c");
    std::atomic<bool> done{false};
    std::atomic<bool> found{false};
    std::thread looker([&] {
        found = table.LookSession("early") != nullptr;
        done = true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    EXPECT_FALSE(done.load()) << "a lookup went ahead before the start-up load";

    table.InitData();
    // The waiting lookup polls every two seconds: it must finish within one more poll.
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (!done.load() && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    EXPECT_TRUE(done.load());
    looker.join();
    EXPECT_TRUE(found.load());
}

}  // namespace
