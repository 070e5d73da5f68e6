// The console's log-in side over loopback: the code picture, worded refusals of log-ins, the
// throttle of failed log-ins, a log-in replacing the browser's session, and pages refused without
// a session. The session cookie's flags, the stored session and log-out are the browser test's
// (e2e/console.test.mjs).
#include "console/ConsoleTestHost.h"

#include <chrono>
#include <thread>

namespace console_test {
namespace {

TEST_F(ConsoleLoopback, CodePictureDrawsTheHandedOutCodeUnderAnHttpOnlyFormKey) {
    HttpResponse res = Call("/api/code", "");
    std::string whole;
    ASSERT_FALSE(CookieSet(res, "qv_codekey", &whole).empty());
    EXPECT_NE(whole.find("HttpOnly"), std::string::npos);
    EXPECT_NE(whole.find("SameSite=Strict"), std::string::npos);
    EXPECT_EQ(res.Header("Content-Type").compare(0, 13, "image/svg+xml"), 0);
    // Drawn as strokes (the reading of the source is console_unit_test's).
    EXPECT_GT(res.body.find("<path"), 0u);
    EXPECT_EQ(res.body.find("<text"), std::string::npos);
}

// 30 scripted wrong passwords: five free tries, then a doubling wait answered with 429 and
// Retry-After; the right password waits too; another user from another address does not.
TEST_F(ConsoleLoopback, FailedLogInsAreThrottledPerNameAndAddress) {
    auto attempt = [&](const std::string& user, const std::string& password,
                       const std::string& address, const std::string& code = kCode) {
        return Post("/api/login", CodeKey() + "; " + FreshToken() + "; qv_lan=en",
                    "user=" + user + "&password=" + password + "&code=" + code,
                    "X-Forwarded-For: " + address + "\r\n");
    };
    int worded = 0, waited = 0;
    for (int i = 0; i < 30; ++i) {
        HttpResponse r = attempt("admin", "wrong-" + std::to_string(i), "198.51.100.7");
        const std::string errmsg = JsonOf(r)["errmsg"].asString();
        if (i <= 6) {  // five free tries; the sixth failure makes the seventh wait
            EXPECT_EQ(r.status, i < 6 ? 200 : 429) << i;
        }
        if (r.status == 429) {
            ++waited;
            EXPECT_EQ(errmsg.find("Too many failed log-ins"), 0u) << errmsg;
            const int retry = std::atoi(r.Header("Retry-After").c_str());
            EXPECT_TRUE(retry >= 1 && retry <= 4) << r.head;
        } else {
            ++worded;
            EXPECT_EQ(errmsg, "Wrong user name or password");
        }
    }
    // Five free tries, the sixth starts a wait of 2 s, then 4 s each: a slow machine may see
    // a few more tries answered, never all of them.
    EXPECT_GE(worded, 6);
    EXPECT_LE(worded, 12);
    EXPECT_EQ(worded + waited, 30);
    HttpResponse right = attempt("admin", "right-pass", "198.51.100.7");
    EXPECT_EQ(right.status, 429) << right.body;
    EXPECT_EQ(attempt("admin", "right-pass", "198.51.100.9").status, 429) << "the name waits";
    HttpResponse other = attempt("ops", "ops-pass", "198.51.100.9");
    EXPECT_EQ(JsonOf(other)["status"].asString(), "success") << other.body;
    std::this_thread::sleep_for(
        std::chrono::seconds(std::atoi(right.Header("Retry-After").c_str()) + 1));
    HttpResponse later = attempt("admin", "right-pass", "198.51.100.7");
    EXPECT_EQ(JsonOf(later)["status"].asString(), "success") << later.body;
    // Wrong verification codes count as failed log-ins too.
    for (int i = 0; i < 6; ++i)
        EXPECT_EQ(attempt("ops", "ops-pass", "198.51.100.20", "zzzz").status, 200) << i;
    EXPECT_EQ(attempt("ops", "ops-pass", "198.51.100.20").status, 429);
    const std::string log = ws_test::RunAndCapture(
        "/bin/sh", {"-c", "cat " + s_tree->Path("middle/log") + "/console*.log"});
    EXPECT_NE(log.find("user \"admin\" from 198.51.100.7"), std::string::npos) << log;
    // The console's own refusals reach the host's monitoring page.
    const std::string metrics = Call("/metrics", "").body;
    for (const char* reason : {"login_throttled", "login_failed"}) {
        const std::string sample =
            std::string("webharbour_refusals_total{reason=\"") + reason + "\"} ";
        const size_t at = metrics.find(sample);
        ASSERT_NE(at, std::string::npos) << metrics;
        EXPECT_GE(std::atoi(metrics.c_str() + at + sample.size()), 6) << reason;
    }
}

// Each refused log-in in the words the user reads; the language follows qv_lan.
TEST_F(ConsoleLoopback, LogInRefusalsAreWorded) {
    struct Case {
        const char* what;
        bool token;
        bool key;
        std::string body;
        const char* lan;
        std::string errmsg;
    };
    const std::string code = std::string("&code=") + kCode;
    const Case cases[] = {
        {"no token", false, true, "user=admin&password=right-pass" + code, "", "请求非法"},
        {"no form key", true, false, "user=admin&password=right-pass" + code, "",
         "验证码已失效，请刷新验证码图片"},
        {"wrong code, English", true, true, "user=admin&password=right-pass&code=zzzz", "en",
         "Wrong verification code"},
        {"wrong password", true, true, "user=admin&password=nope" + code, "en",
         "Wrong user name or password"},
        {"unknown user", true, true, "user=ghost&password=right-pass" + code, "en",
         "Wrong user name or password"},
        {"no company", true, true, "user=loner&password=right-pass" + code, "en",
         "This login name belongs to no company and cannot log in"},
        {"missing password", true, true, "user=admin" + code, "en", "A required field is missing"},
        {"markup", true, true, "user=<script>x</script>&password=p" + code, "en",
         "The input holds markup or script that is not allowed; the request was refused"},
    };
    for (const Case& c : cases) {
        std::string cookies = c.token ? FreshToken() : "";
        if (c.key)
            cookies += (cookies.empty() ? "" : "; ") + CodeKey();
        if (*c.lan)
            cookies += std::string("; qv_lan=") + c.lan;
        Json::Value v = JsonOf(Post("/api/login", cookies, c.body));
        EXPECT_EQ(v["status"].asString(), "failed") << c.what;
        EXPECT_EQ(v["errmsg"].asString(), c.errmsg) << c.what;
    }
}

TEST_F(ConsoleLoopback, ALogInReplacesTheSessionTheBrowserHeld) {
    const std::string first = LogIn();
    ASSERT_FALSE(first.empty());
    HttpResponse res = Post("/api/login", first + "; " + CodeKey() + "; " + FreshToken(),
                            std::string("user=admin&password=right-pass&code=") + kCode);
    const std::string second = CookieSet(res, "qvsessionid");
    ASSERT_FALSE(second.empty()) << res.body;
    EXPECT_NE(first, second);
    EXPECT_EQ(JsonOf(Call("/api/companies", first))["status"].asString(), "SessionTimeOut");
    EXPECT_EQ(JsonOf(Call("/api/companies", second))["status"].asString(), "success");
    Json::Value state = JsonOf(Call("/api/state", second));
    EXPECT_TRUE(state["data"]["loggedIn"].asBool());
    EXPECT_EQ(state["data"]["user"].asString(), "admin");
}

TEST_F(ConsoleLoopback, PagesWithoutASessionAnswerSessionTimeOut) {
    for (const char* target : {"/api/companies", "/api/logins", "/api/events"})
        EXPECT_EQ(JsonOf(Call(target, "qvsessionid=unknown"))["status"].asString(),
                  "SessionTimeOut")
            << target;
    EXPECT_EQ(JsonOf(Post("/api/company/save", FreshToken(), "id=x"))["status"].asString(),
              "SessionTimeOut");
}

}  // namespace
}  // namespace console_test
