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

TEST(GateThreadsTest, GateAndTokenCheckFromManyThreads) {
    ws_test::WriteFile(ws_test::InstallRoot() + "/middle/Conf/middle.ini",
                       "[safe]\nchecktoken=1\ncheckverifycode=1\n");
    BSInitSession();
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
    for (int t = 0; t < 6; ++t) {
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
