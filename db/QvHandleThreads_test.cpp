// Many threads borrowing and returning pooled handles at once through CQvHandleLoc, on real
// threads and the embedded engine (run under the thread sanitizer by scripts/test.sh).
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "bsapi/bsapi.h"
#include "db/QvHandle.h"

class LocatorThreadsTest : public ::testing::Test {
protected:
    std::string m_strAddr = "127.0.0.1";
    int m_nPort = 28000;
    static constexpr int kThreads = 8;
    static constexpr int kRounds = 100;
};

TEST_F(LocatorThreadsTest, ConcurrentBorrowersShareAFewPooledConnections) {
    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            const std::string name = "p" + std::to_string(t);
            for (int round = 1; round <= kRounds; ++round) {
                CQvHandleLoc loc;
                if (t % 2 == 0) {
                    // Tree borrowers write their own property and read it back.
                    if (loc.Treedb_Alloc(m_strAddr, "t", "main", "", -1, m_nPort) != 0 ||
                        loc.Treedb_WriteKeyInt(name, round) != 0 ||
                        loc.Treedb_GetPropertyInt(name, -1) != round) {
                        ++failures;
                    }
                } else {
                    // Table borrowers count inside a transaction that the hand-back rolls back
                    // every other round.
                    if (loc.Tabledb_Alloc(m_strAddr, "tdb", "", "", m_nPort, 0, 0) != 0) {
                        ++failures;
                        continue;
                    }
                    bs_tdfield who("who", tarn::VariableData::VT_STRING);
                    std::list<bs_tdfield*> fields{&who};
                    std::list<tarn::VariableData> values{tarn::VariableData(name)};
                    long long id = 0;
                    if (loc.Tabledb_CreateTable("log", fields, BS_TABLE_ACCEPT_EXISTING) != 0 ||
                        loc.Tabledb_BeginTransaction() != 0 ||
                        loc.Tabledb_InsertRecord("log", values, id) != 0) {
                        ++failures;
                    } else if (round % 2 == 0 && loc.Tabledb_CommitTransaction() != 0) {
                        ++failures;
                    }
                }
            }
        });
    }
    for (std::thread& th : threads)
        th.join();
    EXPECT_EQ(failures.load(), 0);

    CQvHandleLoc tree;
    ASSERT_EQ(tree.Treedb_Alloc(m_strAddr, "t", "main", "", -1, m_nPort), 0);
    for (int t = 0; t < kThreads; t += 2) {
        EXPECT_EQ(tree.Treedb_GetPropertyInt("p" + std::to_string(t), -1), kRounds);
    }
    // No more connections than borrowers at one time; all but the one held here are back.
    int freeHandles = tree.GetAllHandleSize();
    EXPECT_GE(freeHandles, 1);
    EXPECT_LE(freeHandles, kThreads - 1);

    CQvHandleLoc table;
    ASSERT_EQ(table.Tabledb_Alloc(m_strAddr, "tdb", "", "", m_nPort, 0, 0), 0);
    for (int t = 1; t < kThreads; t += 2) {
        int count = -1;
        ASSERT_EQ(table.Tabledb_GetRecordsNumByField(count, "log", "who",
                                                     tarn::VariableData("p" + std::to_string(t))),
                  0);
        EXPECT_EQ(count, kRounds / 2) << "only the committed rounds stay";
    }
}
