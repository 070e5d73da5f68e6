// Tests of the CSRF tokens in a private installation tree: issuing (cookie and token file), every
// answer of BSCheckToken, the token's 16 seconds on a test clock, the sweeper, the "safe"
// switches in middle.ini, and issuing and checking from many threads at once.
#include "protect/WebToken.h"

#include <gtest/gtest.h>
#include <json/json.h>
#include <sys/stat.h>

#include <atomic>
#include <chrono>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "common/Clock.h"
#include "common/IniFile.h"
#include "common/TimeFace.h"
#include "common/md5.h"
#include "session/SessionApi.h"
#include "session/WebSession.h"
#include "tests/support/HostDouble.h"
#include "tests/support/TestTree.h"
#include "translate/QVTranslate.h"

namespace {

std::atomic<time_t> g_now{1800000000};
time_t FakeNow() {
    return g_now.load();
}

const char* const kStaleId = "IDS_5278a29d8117314fdb88782b73c34386";
const char* const kRefused = "Session init failed or query string failed";
const char* const kPeer = "10.0.0.1";
const char* const kPage = "http://console.test:8121/pages/company.html";
const char* const kBaseIni = "[main]\nloglevel=0\n[safe]\ncheckverifycode=1\nchecktoken=1\n";

std::string Root() {
    return ws_test::InstallRoot();
}
std::string IniPath() {
    return Root() + "/middle/Conf/middle.ini";
}
std::string TmpDir() {
    return Root() + "/webharbour/hdoc/tmp";
}
std::string Md5(const std::string& text) {
    std::string hex;
    sdigest(text, hex);
    return hex;
}

class WebTokenTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        // The message catalogs, so that the stale-token answer carries its text.
        const std::string lang = std::string(WS_LANG_SOURCE_DIR) + "/";
        for (const char* name : {"zh.lang", "en.lang"}) {
            ws_test::WriteFile(Root() + "/middle/lang/" + name, ws_test::ReadFile(lang + name));
        }
        ws_test::WriteFile(IniPath(), kBaseIni);
        BSInitSession();
    }
    void SetUp() override {
        g_now = 1800000000;
        tarn::SetClockForTest(&FakeNow);
        ::chmod(TmpDir().c_str(), 0755);
        // Fresh sessions on the test clock (an id added again replaces the earlier session).
        std::string id = "tok-client1";
        BSAddSession(id, "c1", "acme", 1, 1, "");
        id = "tok-bound";
        BSAddSession(id, "b", "acme", 1, 0, "10.0.0.1");
        id = "tok-unbound";
        BSAddSession(id, "u", "acme", 1, 0, "");
    }
    void TearDown() override { tarn::SetClockForTest(nullptr); }

    // Issues a token through the exported call and returns the token text.
    static std::string Issue() {
        ws_test::HostDouble host;
        std::string cookie = BSGetTokenCookie(host.Info());
        std::string::size_type begin = cookie.find('=') + 1;
        return cookie.substr(begin, cookie.find(';') - begin);
    }

    // A request that passes every check when given a fresh token; a field left empty sends
    // no such cookie.
    struct Req {
        Req(std::string t, std::string s = "", std::string p = kPeer, std::string r = kPage,
            std::string h = "console.test:8121", std::string q = "callbackparam=cb&a=1")
            : token(t), session(s), peer(p), referer(r), host(h), query(q) {}
        std::string token, session, peer, referer, host, query;

        void Shape(ws_test::HostDouble& h) const {
            h.Host(host).Referer(referer).Peer(peer).Query(query).Cookie(
                "qv_lan=zh" + (token.empty() ? "" : "; CSRF-TOKEN=" + token) +
                (session.empty() ? "" : "; qvsessionid=" + session));
        }
    };

    // The errmsg of the refusal sent, unwrapped for `callback`.
    static std::string Refusal(const ws_test::HostDouble& host, const std::string& callback) {
        std::string text;
        if (!host.Unwrap(callback, text))
            return "<not wrapped for '" + callback + "'>";
        Json::Value root;
        if (!Json::Reader().parse(text, root) || root["status"].asString() != "failed") {
            return "<no failed envelope>";
        }
        return root["errmsg"].asString();
    }

    static std::string StaleMessage(time_t now, time_t issued) {
        return qv_tipsTranslate2(kStaleId, "default") + std::to_string(now - issued - 15) + "," +
               std::to_string(now) + "," + std::to_string(issued);
    }
};

TEST_F(WebTokenTest, IssuedCookieCarriesTheTokenAndItsFileIsWritten) {
    const size_t before = g_WebTokenColl.GetRecordedTokenCount();
    ws_test::HostDouble host;
    const std::string cookie = BSGetTokenCookie(host.Info());
    const std::regex shape(
        "CSRF-TOKEN=([0-9a-f]{32}-1800000000); expires=(.*); Max-Age=300; path=/;httponly");
    std::smatch m;
    ASSERT_TRUE(std::regex_match(cookie, m, shape)) << cookie;
    EXPECT_EQ(m[2].str(), tarn::TimeFace(1800000000).ToHttpGMTString());
    EXPECT_EQ(ws_test::ReadFile(TmpDir() + "/" + Md5(m[1].str()) + ".txt"), m[1].str());
    EXPECT_EQ(g_WebTokenColl.GetRecordedTokenCount(), before + 1);
    EXPECT_FALSE(host.Answered());
}

TEST_F(WebTokenTest, TokenLivesFifteenSecondsAndIsRefusedAtSixteen) {
    ASSERT_FALSE(qv_tipsTranslate2(kStaleId, "default").empty()) << "catalogs not installed";
    struct {
        time_t age;
        uint32_t result;
    } cases[] = {{0, 1}, {5, 1}, {15, 1}, {16, 0}, {17, 0}, {3600, 0}};
    for (const auto& c : cases) {
        g_now = 1800000000 + 100 * c.age;
        const time_t issued = g_now;
        const std::string token = Issue();
        g_now = issued + c.age;
        for (int repeat = 0; repeat < 2; ++repeat) {  // a live token serves repeated requests
            ws_test::HostDouble host;
            Req{token}.Shape(host);
            EXPECT_EQ(BSCheckToken(host.Info()), c.result) << "age " << c.age;
            if (c.result == 1) {
                EXPECT_FALSE(host.Answered()) << "age " << c.age;
            } else {
                EXPECT_EQ(Refusal(host, "cb"), StaleMessage(g_now, issued)) << "age " << c.age;
            }
        }
    }
}

TEST_F(WebTokenTest, EveryAnswerHasItsMessageAndSender) {
    const std::string token = Issue();
    // A fresh time, but this token was never issued, so no file exists for it.
    const std::string unsaved = "ffffffffffffffffffffffffffffffff-1800000000";
    const std::string host = "console.test:8121", xss = "callbackparam=cb&q=%3Cb%3E";
    const std::string other = "http://elsewhere.test/pages/company.html";
    const struct {
        const char* label;
        Req req;
        uint32_t result;
        const char* callback;  // of the refusal: "" for the unwrapped error envelope
        std::string errmsg;
    } cases[] = {
        {"fresh token, no session", {token}, 1, "", ""},
        {"client type 1 needs no token", {"", "tok-client1"}, 1, "", ""},
        {"empty host text lies within any page", {token, "", kPeer, kPage, ""}, 1, "", ""},
        {"session of this address", {token, "tok-bound"}, 1, "", ""},
        // A session is bound to the first address that presents it.
        {"unbound session, first address", {token, "tok-unbound", "10.0.0.7"}, 1, "", ""},
        {"unbound session, second address", {token, "tok-unbound", "10.0.0.8"}, 0, "", kRefused},
        {"session of another address", {token, "tok-bound", "10.0.0.2"}, 0, "", kRefused},
        {"gate refused", {token, "", kPeer, kPage, host, xss}, 0, "", kRefused},
        {"no referring page", {token, "", kPeer, ""}, 0, "cb", "请求不合法"},
        {"no referring page, no host", {token, "", kPeer, "", ""}, 0, "cb", "请求不合法"},
        {"host not within the page", {token, "", kPeer, other}, 0, "cb", "请求不合法"},
        {"no token cookie", {"", "tok-bound"}, 0, "cb", "请求非法"},
        {"fresh token without its file", {unsaved}, 0, "cb", "请求不合法,token保存失败"},
        {"token without a time", {"0123456789abcdef"}, 0, "cb", StaleMessage(1800000000, 0)},
    };
    for (const auto& c : cases) {
        ws_test::HostDouble request;
        c.req.Shape(request);
        EXPECT_EQ(BSCheckToken(request.Info()), c.result) << c.label;
        if (c.result == 1) {
            EXPECT_FALSE(request.Answered()) << c.label;
            continue;
        }
        EXPECT_EQ(request.SendHeadCalls(), 1) << c.label;
        EXPECT_EQ(Refusal(request, c.callback), c.errmsg) << c.label;
    }
}

TEST_F(WebTokenTest, SwitchesAreStoredAndWrittenByTheirLowByte) {
    // 256 has a zero low byte: verification codes off; the token check stays on.
    EXPECT_TRUE(BSSetVerifyToken(256, 1));
    bool verify = true, token = false;
    EXPECT_TRUE(BSGetVerifyToken(verify, token));
    EXPECT_FALSE(verify);
    EXPECT_TRUE(token);
    EXPECT_FALSE(BSWhetherCheckVerifyCode());
    tarn::CIniFile ini(IniPath());
    ASSERT_TRUE(ini.Init());
    EXPECT_EQ(ini.GetIniSetting("safe", "checkverifycode", "?"), "0");
    EXPECT_EQ(ini.GetIniSetting("safe", "checktoken", "?"), "1");
    EXPECT_EQ(ini.GetIniSetting("main", "loglevel", "?"), "0") << "other settings are kept";

    // With the token check off (low byte 0) every request passes and nothing is sent.
    EXPECT_TRUE(BSSetVerifyToken(1, 0x100));
    EXPECT_FALSE(g_WebTokenColl.GetCheckToken());
    ws_test::HostDouble host;
    host.Referer("").Query("q=%3Cscript%3E");
    EXPECT_EQ(BSCheckToken(host.Info()), 1u);
    EXPECT_FALSE(host.Answered());
    EXPECT_TRUE(BSSetVerifyToken(1, 1));
    EXPECT_TRUE(BSWhetherCheckVerifyCode());
}

TEST_F(WebTokenTest, InitDataReadsTheSafeSection) {
    struct {
        const char* ini;  // nullptr: no file at all
        uint32_t interval;
        bool checkToken;
        bool checkVerifyCode;
    } cases[] = {
        {nullptr, 60, true, true},
        {"[main]\nloglevel=0\n", 60, true, true},
        {"[safe]\ntokeninterval=5\nchecktoken=0\ncheckverifycode=0\n", 5, false, false},
        {"[safe]\nchecktoken=2\ncheckverifycode=1\n", 60, false, true},
        {"[safe]\ntokeninterval=0\nchecktoken=\n", 60, true, true},
        {"[safe]\ntokeninterval=abc\n", 60, true, true},
    };
    for (const auto& c : cases) {
        if (c.ini) {
            ws_test::WriteFile(IniPath(), c.ini);
        } else {
            ::remove(IniPath().c_str());
        }
        CWebTokenColl coll;
        coll.InitData();
        EXPECT_EQ(coll.GetTokenInterval(), c.interval) << (c.ini ? c.ini : "no file");
        EXPECT_EQ(coll.GetCheckToken(), c.checkToken) << (c.ini ? c.ini : "no file");
        EXPECT_EQ(coll.GetCheckVerifyCode(), c.checkVerifyCode) << (c.ini ? c.ini : "no file");
    }
    ws_test::WriteFile(IniPath(), kBaseIni);
}

TEST_F(WebTokenTest, CutTimeReadsTheNumberAfterTheFirstDash) {
    struct {
        const char* token;
        int64_t issued;
    } cases[] = {{"abc-123", 123}, {"abc", 0},   {"abc-x12", 0}, {"a-b-7", 0},
                 {"-42", 42},      {"x--5", -5}, {"", 0},        {"d-17 tail", 17}};
    for (const auto& c : cases)
        EXPECT_EQ(CWebTokenColl::CutTime(c.token), c.issued) << c.token;
}

TEST_F(WebTokenTest, SweepCollectsTokensSixteenSecondsOldAgainAndAgain) {
    CWebTokenColl coll;
    const std::string first = Md5("g1") + "-1800000000";
    const std::string second = Md5("g2") + "-1800000005";
    const std::string sameSecond = Md5("g3") + "-1800000000";
    for (const std::string& t : {first, second, sameSecond}) {
        ws_test::WriteFile(CWebTokenColl::TokenFilePath(t), t);
        coll.AddTimeToken(t);
    }
    // One record per second: the second token of 1800000000 is not recorded.
    EXPECT_EQ(coll.GetRecordedTokenCount(), 2u);

    g_now = 1800000015;
    EXPECT_EQ(coll.CalcTimeOutToken(), 0u);
    g_now = 1800000016;
    EXPECT_EQ(coll.CalcTimeOutToken(), 1u);
    coll.RemoveTokenFile();
    EXPECT_FALSE(ws_test::FileExists(CWebTokenColl::TokenFilePath(first)));
    EXPECT_TRUE(ws_test::FileExists(CWebTokenColl::TokenFilePath(second)));

    // Records are never dropped: the next sweep lists the first token again.
    g_now = 1800000021;
    EXPECT_EQ(coll.CalcTimeOutToken(), 2u);
    coll.RemoveTokenFile();
    EXPECT_FALSE(ws_test::FileExists(CWebTokenColl::TokenFilePath(second)));
    EXPECT_EQ(coll.GetRecordedTokenCount(), 2u);
    // The unrecorded token's file is never swept.
    EXPECT_TRUE(ws_test::FileExists(CWebTokenColl::TokenFilePath(sameSecond)));
}

TEST_F(WebTokenTest, MissingTokenDirectoryIsCreatedWithModeZeroSeventy) {
    ws_test::RemoveTree(TmpDir());
    ASSERT_FALSE(ws_test::FileExists(TmpDir()));
    Issue();
    struct stat st;
    ASSERT_EQ(::stat(TmpDir().c_str(), &st), 0);
    const mode_t mask = ::umask(0);
    ::umask(mask);
    EXPECT_EQ(st.st_mode & 0777, 0070 & ~mask);
}

TEST_F(WebTokenTest, SweeperWithIntervalOneRemovesFilesOnceSixteenSecondsOld) {
    ws_test::WriteFile(IniPath(), std::string(kBaseIni) + "tokeninterval=1\n");
    // The sweeper never returns: its collection lives for the rest of the process.
    static CWebTokenColl* sweeping = new CWebTokenColl;
    sweeping->InitData();
    ws_test::WriteFile(IniPath(), kBaseIni);
    ASSERT_EQ(sweeping->GetTokenInterval(), 1u);

    const std::string token = Md5("sweep") + "-1800000000";
    const std::string file = CWebTokenColl::TokenFilePath(token);
    ws_test::WriteFile(file, token);
    sweeping->AddTimeToken(token);
    // The age limit itself is tested on CalcTimeOutToken above; here the loop's sweeping.
    g_now = 1800000016;
    std::thread([] { sweeping->TimerClearToken(); }).detach();
    auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(2500);
    while (ws_test::FileExists(file) && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    EXPECT_FALSE(ws_test::FileExists(file));
}

}  // namespace
