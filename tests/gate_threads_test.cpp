// The request gate and the CSRF check from many request threads at once, while the token sweep
// and log-ins and log-outs run beside them.
#include <gtest/gtest.h>

#include <atomic>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "protect/WebToken.h"
#include "session/SessionApi.h"
#include "tests/support/HostDouble.h"
#include "tests/support/TestTree.h"

namespace {

const int kThreads = 6;
const int kRounds = 150;

class GateThreadsTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        ws_test::WriteFile(ws_test::InstallRoot() + "/middle/Conf/middle.ini",
                           "[safe]\nchecktoken=1\ncheckverifycode=1\n");
        BSInitSession();
    }
};

TEST_F(GateThreadsTest, GateAndTokenCheckFromManyThreads) {
    std::atomic<bool> stop{false};
    std::atomic<int> wrong{0};

    // The maintenance thread's sweep, without its sleep.
    std::thread sweeper([&] {
        while (!stop.load()) {
            if (g_WebTokenColl.CalcTimeOutToken() >= 1)
                g_WebTokenColl.RemoveTokenFile();
            std::this_thread::yield();
        }
    });
    // Log-ins and log-outs of other users meanwhile.
    std::thread logins([&] {
        for (int i = 0; !stop.load(); ++i) {
            std::string id = "other-" + std::to_string(i % 50);
            BSAddSession(id, "other", "co", 1, 0, "");
            if (i % 2)
                BSEraseSession(id);
        }
    });

    std::vector<std::thread> workers;
    for (int t = 0; t < kThreads; ++t) {
        workers.emplace_back([&, t] {
            const std::string sessionId = "gt-" + std::to_string(t);
            std::string id = sessionId;
            BSAddSession(id, "user" + std::to_string(t), "co", 1, 0, "");
            for (int i = 0; i < kRounds; ++i) {
                // The gate on a POST with a live session.
                ws_test::HostDouble post;
                post.Method(WH_METHOD_POST)
                    .Cookie("qv_lan=" + std::string(t % 2 ? "en" : "zh") +
                            "; qvsessionid=" + sessionId)
                    .Query("callbackparam=cb" + std::to_string(t) + "&n=" + std::to_string(i))
                    .Body("who=" + std::to_string(t));
                std::map<std::string, std::string> params;
                std::string callback;
                if (Web_SessionInit(post.Info(), callback, params, 1, 1, true) != 0 ||
                    params["n"] != std::to_string(i) || params["who"] != std::to_string(t) ||
                    callback != "cb" + std::to_string(t) || post.Answered()) {
                    ++wrong;
                }

                // A fresh token issued and checked on the same thread.
                ws_test::HostDouble check;
                std::string cookie = BSGetTokenCookie(check.Info());
                std::string token = cookie.substr(11, cookie.find(';') - 11);
                check.Host("console.test")
                    .Referer("http://console.test/page.html")
                    .Peer("10.1.0." + std::to_string(t))
                    .Cookie("CSRF-TOKEN=" + token + "; qvsessionid=" + sessionId);
                if (BSCheckToken(check.Info()) != 1 || check.Answered())
                    ++wrong;

                // A stranger's request: refused with exactly one answer.
                ws_test::HostDouble stranger;
                stranger.Host("console.test").Referer("http://evil.test/").Cookie("x=1");
                if (BSCheckToken(stranger.Info()) != 0 || stranger.SendHeadCalls() != 1)
                    ++wrong;
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
