// The session table under many request threads adding, looking up and erasing while a clock
// thread keeps making the four-hourly sweep due, the exported functions on the same load, and
// the gate and the CSRF check beside the token sweep.
#include <gtest/gtest.h>

#include <atomic>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "common/Clock.h"
#include "protect/WebToken.h"
#include "session/SessionApi.h"
#include "session/WebSession.h"
#include "tests/support/HostDouble.h"
#include "tests/support/TestTree.h"

namespace {

std::atomic<time_t> g_now{1700000000};
time_t FakeNow() {
    return g_now.load();
}

const int kThreads = 6;
const int kRounds = 400;

// The process-wide table and token collection, with the token check and the codes switched on.
void InitSession() {
    ws_test::WriteFile(ws_test::InstallRoot() + "/middle/Conf/middle.ini",
                       "[safe]\nchecktoken=1\ncheckverifycode=1\n");
    BSInitSession();
}

// Runs `work(t)` on kThreads threads at once and waits for them.
template <typename F>
void OnEveryThread(F work) {
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back(work, t);
    for (auto& th : threads)
        th.join();
}

TEST(SessionThreadsTest, AddLookEraseWhileTheSweepRuns) {
    tarn::SetClockForTest(&FakeNow);
    CGWebSessionColl table;
    table.InitData();
    std::atomic<bool> stop{false};
    // Every millisecond an hour passes: sweeps become due again and again and sessions time out
    // under the workers' hands.
    std::thread clock([&] {
        for (; !stop; std::this_thread::sleep_for(std::chrono::milliseconds(1)))
            g_now += 3600;
    });
    std::vector<std::vector<CGWebSession*>> handedOut(kThreads);
    std::atomic<int> wrong{0};  // a record of another id, or an erased id that still answered
    OnEveryThread([&](int t) {
        const std::string user = "user" + std::to_string(t);
        for (int i = 0; i < kRounds; ++i) {
            const std::string id = "t" + std::to_string(t) + "-" + std::to_string(i);
            std::string given = id, company;
            CGWebSession* added = table.AddSession(given, user, "co", 1, 0, "10.0.0.1");
            handedOut[t].push_back(added);
            wrong += added->GetSessionId() != id || given != id;
            // Our own session and a neighbour's: a hit must be the right record.
            for (const std::string& probe :
                 {id, "t" + std::to_string((t + 1) % kThreads) + "-" + std::to_string(i)}) {
                CGWebSession* seen = table.LookSession(probe);
                wrong += seen != nullptr && seen->GetSessionId() != probe;
            }
            wrong += table.GetCompanyIdBySessionId(id, company) && company != "co";
            if (i % 3 == 0) {
                table.EraseSession(id);
                wrong += table.LookSession(id) != nullptr;
            }
            table.CanAddNewSession(user, "co");
        }
    });
    stop = true;
    clock.join();
    tarn::SetClockForTest(nullptr);
    EXPECT_EQ(wrong.load(), 0);
    for (int t = 0; t < kThreads; ++t) {
        // Records handed out stay readable whatever the sweep and the erasures did.
        for (CGWebSession* rec : handedOut[t])
            ASSERT_EQ(rec->GetUserId(), "user" + std::to_string(t));
        // Counts are created under the bare user id and never decremented there.
        int count = 0;
        ASSERT_TRUE(table.GetUserCount("user" + std::to_string(t), count));
        EXPECT_EQ(count, kRounds);
    }
    EXPECT_LE(table.GetSessionCount(), size_t(kThreads) * (kRounds - (kRounds + 2) / 3));
}

TEST(SessionThreadsTest, ExportedFunctionsFromManyThreads) {
    InitSession();
    std::atomic<int> wrong{0};
    OnEveryThread([&](int t) {
        for (int i = 0; i < kRounds / 4; ++i) {
            std::string id = "api-" + std::to_string(t) + "-" + std::to_string(i), company;
            st_wh_head head;
            head.cookie = "a=1; qvsessionid=" + id;
            st_wh_info info;
            info.head = &head;
            BSAddSession(id, "u" + std::to_string(t), "co", 1, 0, "");
            // The real clock runs here, so a fresh session cannot time out.
            wrong += BSCheckQvSession(&info) != id || Web_SessionisPastdue(&info);
            wrong += !Session_GetCompanyIdBySessionId(id, company) || company != "co";
            BSEraseSession(id);
            wrong += !BSWhetherSessionIdTimeOut(id);
        }
    });
    EXPECT_EQ(wrong.load(), 0);
}

// The request gate and the CSRF check from many request threads at once, while the token sweep
// and log-ins and log-outs run beside them.
TEST(SessionThreadsTest, GateAndTokenCheckFromManyThreads) {
    InitSession();
    std::atomic<bool> stop{false};
    std::atomic<int> wrong{0};
    // The maintenance thread's sweep without its sleep, and other users logging in and out.
    std::thread sweeper([&] {
        for (; !stop; std::this_thread::yield()) {
            if (g_WebTokenColl.CalcTimeOutToken() >= 1)
                g_WebTokenColl.RemoveTokenFile();
        }
    });
    std::thread logins([&] {
        for (int i = 0; !stop; ++i) {
            std::string id = "other-" + std::to_string(i % 50);
            BSAddSession(id, "other", "co", 1, 0, "");
            if (i % 2)
                BSEraseSession(id);
        }
    });
    std::vector<std::thread> workers;
    for (int t = 0; t < kThreads; ++t) {
        workers.emplace_back([&wrong, t] {
            const std::string sessionId = "gt-" + std::to_string(t), n = std::to_string(t);
            std::string id = sessionId;
            BSAddSession(id, "user" + n, "co", 1, 0, "");
            for (int i = 0; i < 150; ++i) {
                // The gate on a POST with a live session.
                ws_test::HostDouble post;
                post.Method(WH_METHOD_POST)
                    .Cookie(std::string("qv_lan=") + (t % 2 ? "en" : "zh") +
                            "; qvsessionid=" + sessionId)
                    .Query("callbackparam=cb" + n + "&n=" + std::to_string(i))
                    .Body("who=" + n);
                std::map<std::string, std::string> params;
                std::string callback;
                wrong += Web_SessionInit(post.Info(), callback, params, 1, 1, true) != 0 ||
                         params["n"] != std::to_string(i) || params["who"] != n ||
                         callback != "cb" + n || post.Answered();
                // A fresh token issued and checked on the same thread.
                ws_test::HostDouble check;
                const std::string cookie = BSGetTokenCookie(check.Info());
                check.Host("console.test")
                    .Referer("http://console.test/page.html")
                    .Peer("10.1.0." + n)
                    .Cookie(cookie.substr(0, cookie.find(';')) + "; qvsessionid=" + sessionId);
                wrong += BSCheckToken(check.Info()) != 1 || check.Answered();
                // A stranger's request: refused with exactly one answer.
                ws_test::HostDouble stranger;
                stranger.Host("console.test").Referer("http://evil.test/").Cookie("x=1");
                wrong += BSCheckToken(stranger.Info()) != 0 || stranger.SendHeadCalls() != 1;
            }
        });
    }
    for (auto& w : workers)
        w.join();
    stop = true;
    sweeper.join();
    logins.join();
    EXPECT_EQ(wrong.load(), 0);
}

}  // namespace
