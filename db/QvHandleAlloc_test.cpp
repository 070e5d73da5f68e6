// Tests of CQvHandleLoc allocation against the embedded engine: one tree allocation per locator,
// the default port and flags, reuse of pooled connections without an open call, retries and
// permanent codes, the liveness probe, transactions rolled back at hand-back, and replacement.
#include <gtest/gtest.h>

#include <string>

#include "bsapi/bsapi.h"
#include "db/QvHandle.h"

namespace {

const char* const kFaultCalls[] = {"bs_treedb_open",
                                   "bs_treedb_reopen",
                                   "bs_treedb_open_subkey",
                                   "bs_handle_keep_live",
                                   "bs_treedb_commit_transaction",
                                   "bs_treedb_rollback_transaction",
                                   "bs_treedb_query_handle"};

struct Where {
    int rc = -1;
    std::string tree, main, key, sub;
    unsigned int flags = 0, port = 0;
};

Where Query(CQvHandleLoc& loc) {
    Where w;
    w.rc = loc.Treedb_QueryHandle(w.tree, w.main, w.key, w.flags, w.sub, w.port);
    return w;
}

}  // namespace

class LocatorAllocTest : public ::testing::Test {
protected:
    void SetUp() override {
        static int next = 25000;
        m_nPort = next++;  // every test its own server pool and data directory
    }
    void TearDown() override {
        for (const char* call : kFaultCalls)
            bs_debug_fail_next(call, 0, 0);
    }
    int Alloc(CQvHandleLoc& loc, const std::string& main = "main", const std::string& key = "",
              int flags = -1, const std::string& tree = "t") {
        return loc.Treedb_Alloc(m_strAddr, tree, main, key, flags, m_nPort);
    }
    // A tree handle is open on "main" and back in the pool.
    void WarmPool() {
        CQvHandleLoc loc;
        ASSERT_EQ(Alloc(loc), 0);
        ASSERT_EQ(loc.Treedb_WriteKeyInt("n", 41), 0);
    }
    std::string m_strAddr = "127.0.0.1";
    int m_nPort = 0;
};

TEST_F(LocatorAllocTest, ALocatorServesOneTreeAllocation) {
    CQvHandleLoc loc;
    ASSERT_EQ(Alloc(loc, "first"), 0);
    CConfHandle* held = loc.GetConfHandle();
    EXPECT_EQ(Alloc(loc, "second"), 1);
    EXPECT_EQ(loc.GetConfHandle(), held);
    EXPECT_EQ(Query(loc).main, "first");
    loc.FreeHandle();
    // Even after the hand-back the locator refuses a second tree allocation.
    EXPECT_EQ(Alloc(loc, "second"), 1);
    EXPECT_EQ(loc.GetConfHandle(), nullptr);
}

TEST_F(LocatorAllocTest, PortZeroReachesTheServerOnPort8123) {
    const std::string address = "port-zero-" + std::to_string(m_nPort);
    {
        CQvHandleLoc loc;
        ASSERT_EQ(loc.Treedb_Alloc(address, "t", "main", "", -1, 0), 0);
        EXPECT_EQ(Query(loc).port, 8123u);
    }
    // The handle went back to the pool of port 8123.
    for (int port : {8123, 0}) {
        CServerHandlePool* server = g_GrossHandlePool.GetServerPool(CDBServer(address, port));
        CHandlePool* pool = server->GetTreedbPool();
        EXPECT_EQ(pool->FreeHandleSize(), port == 0 ? 0 : 1);
        CDealHandleObj::DeleteHandleObj(pool);
        CDealHandleObj::DeleteHandleObj(server);
    }
}

TEST_F(LocatorAllocTest, NegativeFlagsChooseTheDefaultsByTreeName) {
    struct Case {
        const char* tree;
        int flags;
        unsigned expected;
    } cases[] = {{"ccubase", -1, 0x80080u},
                 {"ccubase2", -1, 0x80000u},
                 {"other", -7, 0x80000u},
                 {"ccubase", 0x80004, 0x80004u}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.tree);
        CQvHandleLoc loc;
        ASSERT_EQ(Alloc(loc, "main", "", c.flags, c.tree), 0);
        EXPECT_EQ(static_cast<unsigned>(loc.OpFlag()), c.expected);
        EXPECT_EQ(Query(loc).flags, c.expected);  // what the library was given
    }
    CQvHandleLoc empty;
    EXPECT_EQ(empty.OpFlag(), 0x80000);
}

TEST_F(LocatorAllocTest, APooledHandleIsReusedWithoutAnyOpenCall) {
    WarmPool();
    for (const char* call : {"bs_treedb_open", "bs_treedb_reopen", "bs_treedb_open_subkey"}) {
        bs_debug_fail_next(call, BS_ERR_INTERNAL, 1);
    }
    {
        CQvHandleLoc loc;
        ASSERT_EQ(Alloc(loc), 0);
        EXPECT_EQ(loc.Treedb_GetPropertyInt("n", 0), 41);
    }
    // None of the three rules was consumed by the reuse.
    void* h = BS_INVALID_HANDLE;
    EXPECT_EQ(bs_treedb_open(h, "main", nullptr, "", BS_OPEN_CREATE, "t", m_strAddr.c_str(),
                             static_cast<unsigned short>(m_nPort)),
              BS_ERR_INTERNAL);
    EXPECT_EQ(bs_treedb_reopen(h, "main", nullptr, "", 0, "t"), BS_ERR_INTERNAL);
    EXPECT_EQ(bs_treedb_open_subkey(h, nullptr, 0), BS_ERR_INTERNAL);
}

TEST_F(LocatorAllocTest, ReuseMovesToOtherNamesButRefusesAnotherKeyName) {
    WarmPool();
    {
        CQvHandleLoc loc;
        ASSERT_EQ(Alloc(loc, "elsewhere"), 0);  // reopened on the pooled connection
        EXPECT_EQ(Query(loc).main, "elsewhere");
        EXPECT_EQ(loc.Treedb_GetPropertyInt("n", -1), -1);
    }
    CQvHandleLoc other;
    EXPECT_EQ(Alloc(other, "elsewhere", "k2"), BS_ERR_OTHER_NAMES);
    other.FreeHandle();
    CQvHandleLoc third;
    EXPECT_EQ(Alloc(third, "elsewhere", ""), 0);
}

// Permanent codes stop after one attempt (a retry would have succeeded); broken connections are
// tried four times in all, and a failed allocation does not use up the locator.
TEST_F(LocatorAllocTest, PermanentCodesStopAtOnceBrokenConnectionsAfterFourAttempts) {
    const struct {
        int code, failures, result;
    } cases[] = {{BS_ERR_NO_TREE, 1, BS_ERR_NO_TREE},
                 {BS_ERR_NO_MAINKEY, 1, BS_ERR_NO_MAINKEY},
                 {BS_ERR_BAD_NAME, 1, BS_ERR_BAD_NAME},
                 {BS_ERR_CONN_CLOSED, 4, BS_ERR_CONN_CLOSED},
                 {BS_ERR_CONN_CLOSED, 3, 0}};
    CQvHandleLoc loc;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.code);
        bs_debug_fail_next("bs_treedb_open", c.code, c.failures);
        EXPECT_EQ(Alloc(loc), c.result);
        EXPECT_EQ(loc.GetConfHandle()->IsOpen(), c.result == 0);
    }
    // The engine's own answer for a missing tree without the create flag.
    CQvHandleLoc absent;
    EXPECT_EQ(Alloc(absent, "main", "", 0, "absent"), BS_ERR_NO_TREE);
}

TEST_F(LocatorAllocTest, ABrokenPooledConnectionIsClosedAndOpenedAnew) {
    WarmPool();
    CServerHandlePool* server = g_GrossHandlePool.GetServerPool(CDBServer(m_strAddr, m_nPort));
    CHandlePool* pool = server->GetTreedbPool();
    CConfHandle* pooled = pool->Alloc(0, true);
    void* oldLib = pooled->GetHandle();
    pool->Free(pooled);
    CDealHandleObj::DeleteHandleObj(pool);
    CDealHandleObj::DeleteHandleObj(server);

    bs_debug_fail_next("bs_treedb_reopen", BS_ERR_CONN_RESET, 1);
    bs_debug_fail_next("bs_treedb_open", BS_ERR_CONN_LOST, 3);
    CQvHandleLoc loc;
    EXPECT_EQ(Alloc(loc, "moved"), BS_ERR_CONN_LOST);
    EXPECT_EQ(loc.GetConfHandle(), pooled);
    EXPECT_FALSE(pooled->IsOpen());
    EXPECT_EQ(bs_handle_keep_live(oldLib), BS_ERR_CONN_CLOSED);  // the old connection is closed
    EXPECT_EQ(Alloc(loc, "moved"), 0);                           // and the next use opens anew
    EXPECT_EQ(Query(loc).main, "moved");
}

TEST_F(LocatorAllocTest, ADeadProbeClosesThePooledConnectionBeforeUse) {
    WarmPool();
    bs_debug_fail_next("bs_handle_keep_live", BS_ERR_CONN_LOST, 1);
    bs_debug_fail_next("bs_treedb_open", BS_ERR_IO, 1);
    CQvHandleLoc loc;
    // Attempt 1: the probe fails, the connection is closed and the open fails; attempt 2 opens.
    EXPECT_EQ(Alloc(loc), 0);
    EXPECT_EQ(loc.Treedb_GetPropertyInt("n", 0), 41);
    // Both rules were consumed: the pooled connection was not simply reused.
    void* h = BS_INVALID_HANDLE;
    EXPECT_EQ(bs_treedb_open(h, "main", nullptr, "", BS_OPEN_CREATE, "t", m_strAddr.c_str(),
                             static_cast<unsigned short>(m_nPort)),
              BS_OK);
    EXPECT_EQ(bs_handle_keep_live(h), BS_OK);
    bs_close_handle(h);
}

TEST_F(LocatorAllocTest, TransactionsAreRolledBackAtHandBack) {
    {
        CQvHandleLoc loc;
        ASSERT_EQ(Alloc(loc), 0);
        ASSERT_EQ(loc.Treedb_BeginTransaction(), 0);
        ASSERT_EQ(loc.Treedb_WriteKeyInt("lost", 1), 0);
    }
    {
        CQvHandleLoc loc;
        ASSERT_EQ(Alloc(loc), 0);
        EXPECT_EQ(loc.Treedb_GetPropertyInt("lost", -1), -1);
        ASSERT_EQ(loc.Treedb_BeginTransaction(), 0);  // no transaction was left open
        ASSERT_EQ(loc.Treedb_WriteKeyInt("kept", 2), 0);
        EXPECT_EQ(loc.Treedb_CommitTransaction(), 0);
        EXPECT_EQ(loc.Treedb_CommitTransaction(), 0);  // nothing open: no library call
        // A failed commit keeps the transaction, so the hand-back still rolls it back.
        ASSERT_EQ(loc.Treedb_BeginTransaction(), 0);
        ASSERT_EQ(loc.Treedb_WriteKeyInt("kept", 3), 0);
        bs_debug_fail_next("bs_treedb_commit_transaction", BS_ERR_BUSY, 1);
        EXPECT_EQ(loc.Treedb_CommitTransaction(), BS_ERR_BUSY);
    }
    CQvHandleLoc loc;
    ASSERT_EQ(Alloc(loc), 0);
    EXPECT_EQ(loc.Treedb_GetPropertyInt("kept", -1), 2);
}

TEST_F(LocatorAllocTest, AFailedRollbackAtHandBackIsReportedAndDropsTheConnection) {
    {
        CQvHandleLoc loc;
        ASSERT_EQ(Alloc(loc), 0);
        ASSERT_EQ(loc.Treedb_BeginTransaction(), 0);
        ASSERT_EQ(loc.Treedb_WriteKeyInt("lost", 1), 0);
        bs_debug_fail_next("bs_treedb_rollback_transaction", BS_ERR_IO, 1);
        testing::internal::CaptureStdout();
        loc.FreeHandle();
        std::string out = testing::internal::GetCapturedStdout();
        EXPECT_NE(out.find("事务回滚失败，错误码: 2009\n"), std::string::npos) << out;
        loc.FreeHandle();  // twice is harmless
    }
    CQvHandleLoc loc;
    ASSERT_EQ(Alloc(loc), 0);
    EXPECT_EQ(loc.Treedb_GetPropertyInt("lost", -1), -1);
    EXPECT_EQ(loc.Treedb_BeginTransaction(), 0);
}

TEST_F(LocatorAllocTest, ExtendedAllocationCreatesTheMissingPath) {
    {
        CQvHandleLoc loc;
        EXPECT_EQ(loc.Treedb_AllocEx(m_strAddr, "saas", "company", "", "loginname\\alice", 0x80000,
                                     m_nPort, false, false, false, 2),
                  BS_ERR_NO_SUBKEY);
    }
    CQvHandleLoc loc;
    ASSERT_EQ(loc.Treedb_AllocEx(m_strAddr, "saas", "company", "", "loginname\\alice", 0x80000,
                                 m_nPort, true, false, false, 2),
              0);
    EXPECT_EQ(Query(loc).sub, "loginname\\alice");
    EXPECT_EQ(loc.Treedb_ReopenSubKeyEx("loginname\\bob", -1, "", "", "", true, 2), 0);
    EXPECT_EQ(Query(loc).sub, "loginname\\bob");
    // Reallocation is allowed only when asked for.
    EXPECT_EQ(
        loc.Treedb_AllocEx(m_strAddr, "saas", "other", "", "", -1, m_nPort, false, false, false, 2),
        1);
    EXPECT_EQ(
        loc.Treedb_AllocEx(m_strAddr, "saas", "other", "", "", -1, m_nPort, false, true, true, 2),
        0);
    EXPECT_EQ(Query(loc).main, "other");
}

TEST_F(LocatorAllocTest, ReplaceHandleReconnectsToTheSameKey) {
    CQvHandleLoc loc;
    ASSERT_EQ(Alloc(loc), 0);
    ASSERT_EQ(loc.Treedb_InsertSubKey("a", 2), 0);
    ASSERT_EQ(loc.Treedb_ReopenSubKey("a", -1), 0);
    ASSERT_EQ(loc.Treedb_WriteKeyInt("x", 5), 0);
    ASSERT_EQ(loc.Treedb_BeginTransaction(), 0);
    ASSERT_EQ(loc.Treedb_WriteKeyInt("x", 6), 0);
    testing::internal::CaptureStdout();
    EXPECT_EQ(loc.ReplaceHandle(), 0);
    std::string out = testing::internal::GetCapturedStdout();
    EXPECT_EQ(out.rfind("Replace handle ........\n", 0), 0u) << out;
    Where w = Query(loc);
    EXPECT_EQ(w.main, "main");
    EXPECT_EQ(w.sub, "a");
    // The transaction ended with the old connection.
    EXPECT_EQ(loc.Treedb_GetPropertyInt("x", 0), 5);
    EXPECT_EQ(loc.Treedb_BeginTransaction(), 0);
    EXPECT_EQ(loc.Treedb_RollbackTransaction(), 0);
}

TEST_F(LocatorAllocTest, EmptyLocatorsAnswerWithoutAHandle) {
    CQvHandleLoc loc;
    EXPECT_EQ(loc.GetAllHandleSize(), -1);
    EXPECT_EQ(loc.Treedb_ReopenSubKey("a", -1), 1);
    EXPECT_EQ(loc.Treedb_BeginTransaction(), 1);
    EXPECT_EQ(loc.RollbackTransaction(), 1);
    EXPECT_EQ(loc.ReplaceHandle(), 1);
    loc.FreeHandle();
    loc.FreeHandle();
    ASSERT_EQ(Alloc(loc, "main", "", -1, "ccubase"), 0);
    EXPECT_EQ(loc.CCUFile(), "ccubase");
    EXPECT_EQ(loc.GetAllHandleSize(), 0);  // the one handle is out on loan
}
