// The console's log-in side over loopback: the code picture, worded refusals of log-ins, the
// session cookie and record, log-out, and pages refused without a session.
#include "console/ConsoleTestHost.h"

namespace console_test {
namespace {

TEST_F(ConsoleLoopback, CodePictureDrawsTheHandedOutCodeUnderAnHttpOnlyFormKey) {
    HttpResponse res = Call("/api/code", "");
    std::string whole;
    ASSERT_FALSE(CookieSet(res, "qv_codekey", &whole).empty());
    EXPECT_NE(whole.find("HttpOnly"), std::string::npos);
    EXPECT_NE(whole.find("SameSite=Strict"), std::string::npos);
    EXPECT_EQ(res.Header("Content-Type").compare(0, 13, "image/svg+xml"), 0);
    std::string drawn;
    for (size_t p = res.body.find("<text"); p != std::string::npos;
         p = res.body.find("<text", p + 1)) {
        size_t gt = res.body.find('>', p);
        drawn += res.body.substr(gt + 1, res.body.find('<', gt) - gt - 1);
    }
    EXPECT_EQ(drawn, kCode);
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
        {"wrong code", true, true, "user=admin&password=right-pass&code=zzzz", "", "验证码错误"},
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

TEST_F(ConsoleLoopback, LogInSetsAStrictSessionCookieAndPersistsTheSession) {
    std::string cookies = CodeKey() + "; " + FreshToken();
    HttpResponse res =
        Post("/api/login", cookies, std::string("user=admin&password=right-pass&code=") + kCode);
    std::string whole;
    std::string session = CookieSet(res, "qvsessionid", &whole);
    ASSERT_FALSE(session.empty()) << res.body;
    EXPECT_NE(whole.find("HttpOnly"), std::string::npos);
    EXPECT_NE(whole.find("SameSite=Strict"), std::string::npos);
    const std::string id = session.substr(session.find('=') + 1);
    std::string stored = Run("bsctl", {"session", "show", id});
    EXPECT_NE(stored.find("admin"), std::string::npos) << stored;
    EXPECT_NE(stored.find("demo"), std::string::npos) << stored;

    Json::Value state = JsonOf(Call("/api/state", session));
    EXPECT_TRUE(state["data"]["loggedIn"].asBool());
    EXPECT_EQ(state["data"]["user"].asString(), "admin");

    // Log-out: the session goes from the table and the database; its pages are refused.
    Json::Value out = JsonOf(Post("/api/logout", session + "; " + FreshToken(), ""));
    EXPECT_EQ(out["status"].asString(), "success");
    EXPECT_EQ(JsonOf(Call("/api/companies", session))["status"].asString(), "SessionTimeOut");
    int status = -1;
    Run("bsctl", {"session", "show", id}, &status);
    EXPECT_NE(status, 0);
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
