// Tests of the handle pools: reference counting, free-list order, ids, the 50-handle limit with
// the waiting 51st borrower, server pools per address and port, and closing at destruction.
#include "db/QvHandlePool.h"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>
#include <vector>

#include "bsapi/bsapi.h"

namespace {

class ProbeObj : public CDealHandleObj {
public:
    explicit ProbeObj(bool* destroyed) : m_pDestroyed(destroyed) {}
    ~ProbeObj() override { *m_pDestroyed = true; }

private:
    bool* m_pDestroyed;
};

double SecondsSince(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

}  // namespace

class HandlePoolTest : public ::testing::Test {
protected:
    void SetUp() override {
        static unsigned short next = 24000;
        m_nPort = next++;
    }
    // Opens a tree on `handle` so that the pool sees it as an open handle.
    void OpenTree(CConfHandle* handle) {
        ASSERT_EQ(bs_treedb_open(handle->GetHandle(), "main", nullptr, "", BS_OPEN_CREATE, "pool",
                                 "127.0.0.1", m_nPort),
                  BS_OK);
    }
    // Fills `pool` to its limit of 50 borrowed tree handles.
    std::vector<CConfHandle*> Exhaust(CHandlePool& pool) {
        std::vector<CConfHandle*> out;
        for (int i = 0; i < 50; ++i) {
            CConfHandle* h = pool.Alloc(0, true);
            EXPECT_NE(h, nullptr) << i;
            out.push_back(h);
        }
        return out;
    }
    unsigned short m_nPort = 0;
};

TEST_F(HandlePoolTest, ReferenceCountDestroysAtTheLastRelease) {
    bool destroyed = false;
    ProbeObj* obj = new ProbeObj(&destroyed);
    obj->AddReference();
    obj->AddReference();
    CDealHandleObj::DeleteHandleObj(obj);
    EXPECT_FALSE(destroyed);
    CDealHandleObj::DeleteHandleObj(obj);
    EXPECT_TRUE(destroyed);
    CDealHandleObj::DeleteHandleObj(nullptr);  // harmless
}

TEST_F(HandlePoolTest, OnlyTreeHandlesAreNumbered) {
    CHandlePool trees, tables, queues;
    std::vector<CConfHandle*> t, b, q;
    for (int i = 0; i < 3; ++i) {
        t.push_back(trees.Alloc(0, true));
        b.push_back(tables.Alloc(1, true));
        q.push_back(queues.Alloc(2, true));
        ASSERT_NE(dynamic_cast<CTreedbHd*>(t.back()), nullptr);
        ASSERT_NE(dynamic_cast<CTabledbHd*>(b.back()), nullptr);
        ASSERT_NE(dynamic_cast<CMQHd*>(q.back()), nullptr);
        EXPECT_EQ(t.back()->GetId(), i);
        EXPECT_EQ(b.back()->GetId(), 0);
        EXPECT_EQ(q.back()->GetId(), 0);
        EXPECT_FALSE(t.back()->IsOpen());
    }
    // A reused handle keeps its id; only new ones take the next.
    trees.Free(t[1]);
    EXPECT_EQ(trees.Alloc(0, true), t[1]);
    t.push_back(trees.Alloc(0, true));
    EXPECT_EQ(t.back()->GetId(), 3);
    EXPECT_EQ(trees.Alloc(7, true), nullptr);
    for (size_t i = 0; i < t.size(); ++i) {
        trees.Free(t[i]);
        if (i < b.size()) {
            tables.Free(b[i]);
            queues.Free(q[i]);
        }
    }
}

TEST_F(HandlePoolTest, OpenHandlesGoToTheFrontAndClosedOnesToTheBack) {
    CHandlePool pool;
    CConfHandle* closed = pool.Alloc(0, true);
    CConfHandle* openOld = pool.Alloc(0, true);
    CConfHandle* openNew = pool.Alloc(0, true);
    OpenTree(openOld);
    OpenTree(openNew);
    testing::internal::CaptureStdout();
    pool.Free(closed);
    pool.Free(openOld);
    pool.Free(openNew);
    pool.Free(nullptr);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "dddddddd");  // once, for the closed one
    EXPECT_EQ(pool.FreeHandleSize(), 3);
    EXPECT_EQ(pool.Alloc(0, true), openNew);  // most recently returned open handle first
    EXPECT_EQ(pool.Alloc(0, false), closed);  // the back holds the closed one
    EXPECT_EQ(pool.Alloc(0, false), openOld);
    EXPECT_EQ(pool.FreeHandleSize(), 0);
    pool.Free(openOld);
    pool.Free(openNew);
    pool.Free(closed);
}

TEST_F(HandlePoolTest, DestroyingAPoolClosesItsFreeHandles) {
    CHandlePool* pool = new CHandlePool();
    pool->AddReference();
    CConfHandle* h = pool->Alloc(0, true);
    OpenTree(h);
    void* lib = h->GetHandle();
    ASSERT_EQ(bs_handle_keep_live(lib), BS_OK);
    pool->Free(h);
    CDealHandleObj::DeleteHandleObj(pool);
    EXPECT_EQ(bs_handle_keep_live(lib), BS_ERR_CONN_CLOSED);  // no longer a live handle
}

TEST_F(HandlePoolTest, ServerPoolsAreKeyedByExactAddressAndPort) {
    CGrossHanlePool gross;
    CServerHandlePool* a = gross.GetServerPool(CDBServer("db.example", 1));
    CServerHandlePool* again = gross.GetServerPool(CDBServer("db.example", 1));
    CServerHandlePool* otherPort = gross.GetServerPool(CDBServer("db.example", 2));
    CServerHandlePool* otherCase = gross.GetServerPool(CDBServer("DB.example", 1));
    EXPECT_EQ(a, again);
    EXPECT_NE(a, otherPort);
    EXPECT_NE(a, otherCase);
    CHandlePool* tree = a->GetHandlePool(0);
    EXPECT_EQ(tree, a->GetTreedbPool());
    EXPECT_EQ(a->GetHandlePool(1), a->GetTabledbPool());
    EXPECT_EQ(a->GetHandlePool(2), a->GetMQPool());
    EXPECT_NE(tree, a->GetHandlePool(1));
    EXPECT_EQ(a->GetHandlePool(3), nullptr);
    EXPECT_EQ(a->GetHandlePool(-1), nullptr);
    // Dropping far more accessor references than were taken by one caller still leaves the
    // member pool alive: the server pool holds a standing one.
    CDealHandleObj::DeleteHandleObj(tree);
    CDealHandleObj::DeleteHandleObj(tree);
    CConfHandle* h = tree->Alloc(0, true);
    ASSERT_NE(h, nullptr);
    tree->Free(h);
    for (CServerHandlePool* p : {a, again, otherPort, otherCase}) {
        CDealHandleObj::DeleteHandleObj(p);
    }
}

TEST_F(HandlePoolTest, ServerOrderingIsByAddressThenSignedPort) {
    EXPECT_TRUE(CDBServer("a", 5) < CDBServer("ab", 1));  // a prefix first
    EXPECT_TRUE(CDBServer("a", -1) < CDBServer("a", 0));
    EXPECT_FALSE(CDBServer("b", 0) < CDBServer("a", 9));
    EXPECT_TRUE(CDBServer("x", 3) == CDBServer("x", 3));
    EXPECT_FALSE(CDBServer("x", 3) == CDBServer("x", 4));
    EXPECT_TRUE(CTableDbAccess("a", "b", "c") < CTableDbAccess("a", "b", "d"));
    EXPECT_TRUE(CTableDbAccess("a", "c", "a") < CTableDbAccess("b", "a", "a"));
    EXPECT_TRUE(CTableDbAccess("a", "b", "c") == CTableDbAccess("a", "b", "c"));
}

// With nothing freed the 51st borrower gets null after five one-second waits; a handle freed
// during the wait serves it.
TEST_F(HandlePoolTest, The51stBorrowerWaitsFiveSecondsForAFreedHandle) {
    CHandlePool pool;
    std::vector<CConfHandle*> held = Exhaust(pool);
    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(pool.Alloc(0, true), nullptr);
    EXPECT_GE(SecondsSince(start), 5.0);
    EXPECT_LT(SecondsSince(start), 7.0);
    CConfHandle* got = nullptr;
    double waited = 0;
    std::thread borrower([&] {
        auto begin = std::chrono::steady_clock::now();
        got = pool.Alloc(0, true);
        waited = SecondsSince(begin);
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(1300));
    pool.Free(held.back());
    borrower.join();
    EXPECT_EQ(got, held.back());
    EXPECT_GE(waited, 1.0);
    EXPECT_LT(waited, 4.5);
    for (CConfHandle* h : held)
        pool.Free(h);
    EXPECT_EQ(pool.FreeHandleSize(), 50);
}
