// The library's gate and CSRF check as a browser meets them through webharbour: a log-in, a
// guarded request that passes, and each refusal (markup, expired session, token missing or
// stale, foreign origin, another address behind a trusted proxy).
#include <gtest/gtest.h>
#include <json/json.h>

#include <memory>

#include "tests/host/HostProcess.h"

namespace {

using wh_test::HttpConn;
using wh_test::HttpResponse;

Json::Value ParseJson(const std::string& text) {
    Json::Value v;
    Json::CharReaderBuilder b;
    std::string errors;
    std::unique_ptr<Json::CharReader> reader(b.newCharReader());
    if (!reader->parse(text.data(), text.data() + text.size(), &v, &errors) || !v.isObject()) {
        // An object still, so that the member checks fail with the text rather than throw.
        Json::Value bad(Json::objectValue);
        bad["status"] = "<not a JSON object: " + text + ">";
        return bad;
    }
    return v;
}

// "name=value; attributes" -> "name=value"
std::string CookiePair(const std::string& setCookie) {
    return setCookie.substr(0, setCookie.find(';'));
}

class HostGateTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        s_tree = std::make_unique<wh_test::HostTree>();
        // Loopback stands for a reverse proxy here, so tests can choose the client's address.
        s_tree->WriteHostIni("TrustedProxies=127.0.0.1\n");
        s_host = std::make_unique<wh_test::HostProcess>(*s_tree);
        ASSERT_TRUE(s_host->Start()) << s_host->Stderr();
    }
    static void TearDownTestSuite() {
        EXPECT_EQ(0, s_host->Terminate(5)) << s_host->Stderr();
        s_host.reset();
        s_tree.reset();
    }

    void SetUp() override {
        HttpResponse login =
            wh_test::Fetch(Port(), "/t/login", "X-Forwarded-For: 198.51.100.1\r\n");
        ASSERT_EQ(200, login.status) << login.raw;
        ASSERT_EQ(2, login.Count("Set-Cookie")) << login.head;
        for (const auto& h : login.headers) {
            if (h.first != "Set-Cookie")
                continue;
            std::string pair = CookiePair(h.second);
            if (pair.compare(0, 12, "qvsessionid=") == 0)
                session = pair;
            else if (pair.compare(0, 11, "CSRF-TOKEN=") == 0)
                token = pair;
        }
        ASSERT_FALSE(session.empty());
        ASSERT_FALSE(token.empty());
        EXPECT_EQ("success", ParseJson(login.body)["status"].asString()) << login.body;
    }

    int Port() const { return s_host->Port(); }
    std::string Page() const { return "http://127.0.0.1:" + std::to_string(Port()) + "/page"; }

    std::string session;
    std::string token;

    static std::unique_ptr<wh_test::HostTree> s_tree;
    static std::unique_ptr<wh_test::HostProcess> s_host;
};

std::unique_ptr<wh_test::HostTree> HostGateTest::s_tree;
std::unique_ptr<wh_test::HostProcess> HostGateTest::s_host;

TEST_F(HostGateTest, GuardedRequestPassesWithSessionTokenAndOrigin) {
    HttpResponse r = wh_test::Fetch(Port(), "/t/guarded?x=1",
                                    "Cookie: " + session + "; " + token + "\r\nReferer: " + Page() +
                                        "\r\nX-Forwarded-For: 198.51.100.1\r\n");
    ASSERT_EQ(200, r.status) << r.raw;
    Json::Value v = ParseJson(r.body);
    EXPECT_EQ("success", v["status"].asString()) << r.body;
    EXPECT_EQ(1, v["data"]["ok"].asInt()) << r.body;
}

TEST_F(HostGateTest, RefusalsAsTheBrowserSeesThem) {
    const std::string forwarded = "X-Forwarded-For: 198.51.100.1\r\n";
    const struct {
        const char* name;
        std::string target;
        std::string headers;
        int status;
        const char* jsonStatus;  // nullptr: no body at all
        const char* errmsg;      // nullptr: not checked
    } kCases[] = {
        {"markup in a parameter", "/t/guarded?name=%3Cscript%3Ealert(1)%3C/script%3E",
         "Cookie: " + session + "; " + token + "\r\nReferer: " + Page() + "\r\n" + forwarded, 400,
         nullptr, nullptr},
        {"expired session", "/t/guarded?x=1",
         "Cookie: qvsessionid=no-such-session; " + token + "\r\nReferer: " + Page() + "\r\n" +
             forwarded,
         200, "SessionTimeOut", nullptr},
        {"missing token", "/t/guarded?x=1",
         "Cookie: " + session + "\r\nReferer: " + Page() + "\r\n" + forwarded, 200, "failed",
         "请求非法"},
        {"foreign origin", "/t/guarded?x=1",
         "Cookie: " + session + "; " + token + "\r\nReferer: http://evil.example/page\r\n" +
             forwarded,
         200, "failed", "请求不合法"},
        {"no referring page", "/t/guarded?x=1",
         "Cookie: " + session + "; " + token + "\r\n" + forwarded, 200, "failed", "请求不合法"},
        {"another address", "/t/guarded?x=1",
         "Cookie: " + session + "; " + token + "\r\nReferer: " + Page() +
             "\r\nX-Forwarded-For: 198.51.100.2\r\n",
         200, "failed", "Session init failed or query string failed"},
    };
    for (const auto& k : kCases) {
        SCOPED_TRACE(k.name);
        HttpResponse r = wh_test::Fetch(Port(), k.target, k.headers);
        EXPECT_EQ(k.status, r.status) << r.raw;
        if (k.jsonStatus == nullptr) {
            EXPECT_EQ("0", r.Header("Content-Length"));
            EXPECT_EQ("", r.body);
            continue;
        }
        Json::Value v = ParseJson(r.body);
        EXPECT_EQ(k.jsonStatus, v["status"].asString()) << r.body;
        if (k.errmsg != nullptr) {
            EXPECT_EQ(k.errmsg, v["errmsg"].asString()) << r.body;
        }
    }
}

TEST_F(HostGateTest, StaleTokenIsRefusedWithItsAge) {
    // A token issued at second 1000 of the epoch: long past its sixteen seconds.
    HttpResponse r = wh_test::Fetch(
        Port(), "/t/guarded?x=1",
        "Cookie: " + session + "; CSRF-TOKEN=0123456789abcdef0123456789abcdef-1000\r\nReferer: " +
            Page() + "\r\nX-Forwarded-For: 198.51.100.1\r\n");
    ASSERT_EQ(200, r.status);
    Json::Value v = ParseJson(r.body);
    EXPECT_EQ("failed", v["status"].asString()) << r.body;
    std::string msg = v["errmsg"].asString();
    // The message text comes from the catalogs; when there is one it ends with the overrun,
    // the time now and the token's time.
    if (!msg.empty()) {
        EXPECT_EQ(",1000", msg.substr(msg.size() - 5)) << msg;
    }
    EXPECT_NE("请求非法", msg);
}

TEST_F(HostGateTest, LoggedOutSessionTimesOut) {
    HttpResponse out = wh_test::Fetch(Port(), "/t/logout", "Cookie: " + session + "\r\n");
    ASSERT_EQ("bye", out.body);
    HttpResponse r = wh_test::Fetch(Port(), "/t/guarded?x=1&callbackparam=cb",
                                    "Cookie: " + session + "; " + token + "\r\nReferer: " + Page() +
                                        "\r\nX-Forwarded-For: 198.51.100.1\r\n");
    ASSERT_EQ(200, r.status);
    // Wrapped for the callback: cb( styled JSON );
    ASSERT_EQ(0u, r.body.find("cb(")) << r.body;
    ASSERT_EQ(");", r.body.substr(r.body.size() - 2));
    EXPECT_EQ("SessionTimeOut",
              ParseJson(r.body.substr(3, r.body.size() - 5))["status"].asString());
}

TEST_F(HostGateTest, PeerAddressFollowsOnlyTrustedProxies) {
    HttpResponse r =
        wh_test::Fetch(Port(), "/t/record", "X-Forwarded-For: 203.0.113.5, 198.51.100.9\r\n");
    EXPECT_NE(std::string::npos, r.body.find("peer=198.51.100.9\n")) << r.body;
}

}  // namespace
