// Tests of session persistence on the embedded database engine of a private installation: what
// CSessionDb reads and deletes, and how the session table uses it at start-up, on lookups and
// when sessions leave.
#include "session/SessionDb.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <list>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "common/Clock.h"
#include "db/QvHandle.h"
#include "session/WebSession.h"

namespace {

std::atomic<time_t> g_now{1750000000};
time_t FakeNow() {
    return g_now.load();
}

const char* const kServer = "127.0.0.1";

struct Stored {
    std::string id;
    std::string user;     // "" leaves the property out
    std::string company;  // "" leaves the property out
    int serverType;       // 0 leaves the property out
    int clientType;
};

class SessionDbTest : public ::testing::Test {
protected:
    void SetUp() override {
        g_now = 1750000000;
        tarn::SetClockForTest(&FakeNow);
        // Every test starts from an empty store.
        std::list<CGWebSession*> old;
        CSessionDb().GetOldWebSession(kServer, old);
        for (CGWebSession* s : old) {
            CSessionDb().DeleteWebSession(s->GetSessionId(), kServer);
            delete s;
        }
    }
    void TearDown() override { tarn::SetClockForTest(nullptr); }

    // Writes a persisted session the way the service's other components do.
    static void Persist(const Stored& s) {
        CQvHandleLoc loc;
        ASSERT_EQ(loc.Treedb_Alloc(kServer, "master", "Session", "", -1, 0), 0);
        ASSERT_EQ(loc.Treedb_InsertSubKey(s.id, 2), 0) << s.id;
        ASSERT_EQ(loc.Treedb_ReopenSubKey(s.id, -1), 0) << s.id;
        if (!s.user.empty()) {
            ASSERT_EQ(loc.Treedb_WriteKeyString("user", s.user), 0);
        }
        if (!s.company.empty()) {
            ASSERT_EQ(loc.Treedb_WriteKeyString("co", s.company), 0);
        }
        if (s.serverType != 0) {
            ASSERT_EQ(loc.Treedb_WriteKeyInt("servertype", s.serverType), 0);
        }
        ASSERT_EQ(loc.Treedb_WriteKeyInt("clienttype", s.clientType), 0);
    }

    static bool IsPersisted(const std::string& id) {
        std::unique_ptr<CGWebSession> s(CSessionDb().GetOneSession(kServer, id));
        return s != nullptr;
    }
};

TEST_F(SessionDbTest, OnlyCompleteRecordsCount) {
    const Stored cases[] = {
        {"full", "ann", "acme", 3, 1},
        {"no-company", "bob", "", 3, 0},
        {"no-user", "", "acme", 3, 0},
        {"no-servertype", "cid", "acme", 0, 0},
    };
    for (const Stored& s : cases)
        Persist(s);

    std::unique_ptr<CGWebSession> full(CSessionDb().GetOneSession(kServer, "full"));
    ASSERT_NE(full, nullptr);
    EXPECT_EQ(full->GetSessionId(), "full");
    EXPECT_EQ(full->GetUserId(), "ann");
    EXPECT_EQ(full->GetCompany(), "acme");
    EXPECT_EQ(full->GetClientType(), 1);
    EXPECT_EQ(full->GetPeerIP(), "") << "the peer address is not persisted";
    for (const char* id : {"no-company", "no-user", "no-servertype", "never-stored"}) {
        EXPECT_FALSE(IsPersisted(id)) << id;
    }

    std::list<CGWebSession*> loaded;
    EXPECT_EQ(CSessionDb().GetOldWebSession(kServer, loaded), 0);
    ASSERT_EQ(loaded.size(), 1u);
    EXPECT_EQ(loaded.front()->GetSessionId(), "full");
    delete loaded.front();
    EXPECT_EQ(CSessionDb().DeleteWebSession("full", kServer), 0);
    EXPECT_FALSE(IsPersisted("full"));
}

TEST_F(SessionDbTest, StartUpLoadsPersistedSessionsAndCountsTheUserOnce) {
    for (const char* id : {"p1", "p2", "p3"})
        Persist({id, "u", "c", 3, 0});
    Persist({"p4", "v", "", 3, 0});  // incomplete: not loaded, and left in the store
    CGWebSessionColl table;
    table.InitData();
    EXPECT_EQ(table.GetSessionCount(), 3u);
    int count = 0;
    ASSERT_TRUE(table.GetUserCount("u", count));
    EXPECT_EQ(count, 1);
    std::string user;
    EXPECT_TRUE(table.GetUserIdBySessionId("p2", user));
    EXPECT_EQ(user, "u");
}

TEST_F(SessionDbTest, SessionOnlyInTheStoreIsFoundButNotTakenIn) {
    CGWebSessionColl table;
    table.InitData();
    Persist({"elsewhere", "w", "acme", 3, 0});  // made by another process after start-up
    CGWebSession* first = table.LookSession("elsewhere");
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(first->GetCompany(), "acme");
    EXPECT_EQ(table.GetSessionCount(), 0u);
    // Every lookup asks the store, but one record serves them all while the store says the
    // same: memory does not grow with the lookups of a second host's session.
    for (int i = 0; i < 200; ++i)
        ASSERT_EQ(table.LookSession("elsewhere"), first) << "lookup " << i;
    EXPECT_EQ(table.GetRecordCount(), 1u);
    // Read afresh each time, such a session binds to no address: every peer is its own.
    for (const char* peer : {"10.0.0.1", "10.0.0.2"})
        EXPECT_EQ(table.LookSession("elsewhere")->BindPeerIP(peer), peer);
    // A change in the store shows at the next lookup; the record handed out stays valid.
    Persist({"elsewhere", "w", "other", 3, 0});
    CGWebSession* changed = table.LookSession("elsewhere");
    ASSERT_NE(changed, nullptr);
    EXPECT_EQ(changed->GetCompany(), "other");
    Persist({"elsewhere", "w", "other", 3, 1});  // the client type alone changed
    EXPECT_EQ(table.LookSession("elsewhere")->GetClientType(), 1);
    CSessionDb().DeleteWebSession("elsewhere", kServer);
    EXPECT_EQ(table.LookSession("elsewhere"), nullptr);
    EXPECT_EQ(first->GetCompany(), "acme") << "a record handed out stays valid";
    EXPECT_EQ(changed->GetUserId(), "w");
}

// A lookup of a session held in memory never waits for another lookup's database query: here
// that query waits for a tree handle while every one of the store's pool is borrowed (and so
// does the deletion of an erased session's copy).
TEST_F(SessionDbTest, LookupsInMemoryDoNotWaitForTheStore) {
    CGWebSessionColl table;
    table.InitData();
    std::string id = "live";
    table.AddSession(id, "u", "c", 1, 0, "");
    std::vector<std::unique_ptr<CQvHandleLoc>> borrowed(50);  // the pool's limit
    for (auto& loc : borrowed) {
        loc = std::make_unique<CQvHandleLoc>();
        ASSERT_EQ(loc->Treedb_Alloc(kServer, "master", "Session", "", -1, 0), 0);
    }
    std::atomic<int> stage{0};
    std::thread stored([&] {
        stage = 1;
        table.LookSession("only-in-the-store");  // waits for a handle, one second at a time
        stage = 2;
    });
    while (stage.load() == 0)
        std::this_thread::yield();
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    EXPECT_NE(table.LookSession("live"), nullptr);
    EXPECT_EQ(stage.load(), 1) << "the lookup in memory waited for the store's query";
    // Erased, while its database copy waits to be deleted: already absent, not served.
    std::thread erase([&] { table.EraseSession("live"); });
    while (table.GetSessionCount() != 0)
        std::this_thread::yield();
    EXPECT_EQ(table.LookSession("live"), nullptr) << "served while it was leaving";
    borrowed.clear();
    stored.join();
    erase.join();
}

TEST_F(SessionDbTest, ErasedAndSweptSessionsLeaveTheStore) {
    CGWebSessionColl table;
    for (const char* id : {"erase-me", "sweep-me", "keep-me"})
        Persist({id, "u", "c", 3, 0});
    table.InitData();
    table.EraseSession("erase-me");
    EXPECT_FALSE(IsPersisted("erase-me"));
    EXPECT_EQ(CSessionDb().DeleteWebSession("erase-me", kServer), 176) << "the missing key";

    g_now += 3 * 3600;
    table.LookSession("keep-me");  // used: its four idle hours start again
    g_now += 3600;                 // "sweep-me" idle four hours, and a sweep is due
    table.LookSession("nobody");
    EXPECT_FALSE(IsPersisted("sweep-me"));
    EXPECT_TRUE(IsPersisted("keep-me"));
    EXPECT_EQ(table.GetSessionCount(), 1u);
}

}  // namespace
