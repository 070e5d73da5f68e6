// The session table under many request threads adding, looking up and erasing while a clock
// thread keeps making the four-hourly sweep due, plus the exported functions on the same load.
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "common/Clock.h"
#include "session/SessionApi.h"
#include "session/WebSession.h"

namespace {

std::atomic<time_t> g_now{1700000000};
time_t FakeNow() {
    return g_now.load();
}

const int kThreads = 6;
const int kRounds = 400;

class SessionThreadsTest : public ::testing::Test {
protected:
    void SetUp() override { tarn::SetClockForTest(&FakeNow); }
    void TearDown() override { tarn::SetClockForTest(nullptr); }
};

struct WorkerResult {
    std::vector<CGWebSession*> handedOut;
    int mismatches = 0;       // a record that answered for another id or user
    int foundAfterErase = 0;  // an erased id that still answered
};

TEST_F(SessionThreadsTest, AddLookEraseWhileTheSweepRuns) {
    CGWebSessionColl table;
    table.InitData();
    std::atomic<bool> stop{false};

    // Every millisecond an hour passes: sweeps become due again and again and sessions time out
    // under the workers' hands.
    std::thread clock([&] {
        while (!stop.load()) {
            g_now += 3600;
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    });

    std::vector<WorkerResult> results(kThreads);
    std::vector<std::thread> workers;
    for (int t = 0; t < kThreads; ++t) {
        workers.emplace_back([&, t] {
            WorkerResult& r = results[t];
            const std::string user = "user" + std::to_string(t);
            for (int i = 0; i < kRounds; ++i) {
                std::string id = "t" + std::to_string(t) + "-" + std::to_string(i);
                std::string given = id;
                CGWebSession* added = table.AddSession(given, user, "co", 1, 0, "10.0.0.1");
                r.handedOut.push_back(added);
                if (added->GetSessionId() != id || given != id)
                    ++r.mismatches;

                // Look up our own session and a neighbour's; a hit must be the right record.
                for (const std::string& probe :
                     {id, "t" + std::to_string((t + 1) % kThreads) + "-" + std::to_string(i)}) {
                    CGWebSession* seen = table.LookSession(probe);
                    if (seen != nullptr && seen->GetSessionId() != probe)
                        ++r.mismatches;
                }
                std::string company;
                if (table.GetCompanyIdBySessionId(id, company) && company != "co") {
                    ++r.mismatches;
                }
                if (i % 3 == 0) {
                    table.EraseSession(id);
                    if (table.LookSession(id) != nullptr)
                        ++r.foundAfterErase;
                }
                table.CanAddNewSession(user, "co");
            }
        });
    }
    for (auto& w : workers)
        w.join();
    stop = true;
    clock.join();

    size_t total = 0;
    for (int t = 0; t < kThreads; ++t) {
        const WorkerResult& r = results[t];
        EXPECT_EQ(r.mismatches, 0) << "thread " << t;
        EXPECT_EQ(r.foundAfterErase, 0) << "thread " << t;
        // Records handed out stay readable whatever the sweep and the erasures did.
        for (CGWebSession* rec : r.handedOut) {
            ASSERT_NE(rec, nullptr);
            EXPECT_EQ(rec->GetUserId(), "user" + std::to_string(t));
        }
        // Counts are created under the bare user id and never decremented there.
        int count = 0;
        ASSERT_TRUE(table.GetUserCount("user" + std::to_string(t), count));
        EXPECT_EQ(count, kRounds);
        total += r.handedOut.size();
    }
    EXPECT_LE(table.GetSessionCount(), total - kThreads * ((kRounds + 2) / 3));
}

TEST_F(SessionThreadsTest, ExportedFunctionsFromManyThreads) {
    BSInitSession();
    std::atomic<int> wrong{0};
    std::vector<std::thread> workers;
    for (int t = 0; t < kThreads; ++t) {
        workers.emplace_back([&, t] {
            for (int i = 0; i < kRounds / 4; ++i) {
                std::string id = "api-" + std::to_string(t) + "-" + std::to_string(i);
                st_wh_head head;
                head.cookie = "a=1; qvsessionid=" + id;
                st_wh_info info;
                info.head = &head;
                std::string given = id;
                BSAddSession(given, "u" + std::to_string(t), "co", 1, 0, "");
                if (BSCheckQvSession(&info) != id)
                    ++wrong;
                std::string company;
                // The clock runs still here, so a fresh session cannot time out.
                if (Web_SessionisPastdue(&info))
                    ++wrong;
                if (!Session_GetCompanyIdBySessionId(id, company) || company != "co")
                    ++wrong;
                BSEraseSession(id);
                if (!BSWhetherSessionIdTimeOut(id))
                    ++wrong;
            }
        });
    }
    for (auto& w : workers)
        w.join();
    EXPECT_EQ(wrong.load(), 0);
}

}  // namespace
