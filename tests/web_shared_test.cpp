// Tests across pieces: the response writer, URL maps and the script-injection filter used the
// way a host and its page handlers use them, through libwebsession.so's exported names only.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <map>
#include <string>

#include "console/ConsoleCommon.h"
#include "protect/XssFilter.h"
#include "session/SessionApi.h"
#include "tests/support/HostDouble.h"
#include "web/BSWork.h"
#include "web/Url.h"

namespace {

using Params = std::map<std::string, std::string>;
using CheckFn = uint32_t (*)(Params&);

class WebSharedTest : public ::testing::Test {
protected:
    ws_test::HostDouble host;
    CBSWork work;
};

TEST_F(WebSharedTest, FilterIsExportedUnderItsPlainName) {
    void* self = ::dlopen(nullptr, RTLD_NOW);
    ASSERT_NE(self, nullptr);
    auto check = reinterpret_cast<CheckFn>(::dlsym(self, "BSCheckXSS"));
    ASSERT_NE(check, nullptr) << ::dlerror();
    Params p{{"a", "<Meta>"}};
    EXPECT_EQ(check(p), 0u);
    EXPECT_EQ(p["a"], "&lt;Meta&gt;");
    ::dlclose(self);
}

TEST_F(WebSharedTest, RefusedQueryParameterAnsweredAsJsonp) {
    host.Method(WH_METHOD_GET).Path("api/list").Query("name=%3Cb%3E&page=2&x=%26y");
    host.Cookie("qv_lan=en; qvsessionid=s1");
    Params params;
    ASSERT_TRUE(host.Info()->url->GetQueryStringMapEx(params, false, true));
    EXPECT_EQ(params, (Params{{"name", "<b>"}, {"page", "2"}, {"x", "&y"}}));
    EXPECT_EQ(BSCheckXSS(params), 0u);
    EXPECT_EQ(params["name"], "&lt;b&gt;");
    EXPECT_EQ(work.GetLan(host.Info()), "en");
    EXPECT_EQ(work.CheckQvSession(host.Info()), "s1");

    EXPECT_EQ(work.SendErrorWebSession(host.Info(), 0, "refused", "cb7"), 1);
    std::string json;
    ASSERT_TRUE(host.Unwrap("cb7", json));
    EXPECT_EQ(json, "{\n   \"errmsg\" : \"refused\",\n   \"status\" : \"success\"\n}\n");
    ASSERT_EQ(host.SendHeadCalls(), 1);
    EXPECT_EQ(host.Heads()[0].contentType, "text/html;charset=UTF-8");
    EXPECT_EQ(host.Heads()[0].contentLength, host.BodySent().size());
}

TEST_F(WebSharedTest, EventStreamThroughTheHost) {
    host.Header("Last-Event-ID", "41");
    EXPECT_EQ(work.CheckChunkLastEventId(host.Info()), "41");
    work.SendInfoToWeb(host.Info(), "id: 42\ndata: x\n\n", 2, true, 0, "text/html");
    work.SendInfoToWeb(host.Info(), "", 2, true, -1, "text/html");
    ASSERT_EQ(host.SendHeadCalls(), 1);
    EXPECT_EQ(host.Heads()[0].transferEncoding, "chunked");
    ASSERT_EQ(host.Chunks().size(), 2u);
    EXPECT_EQ(host.Chunks()[0].first, "id: 42\ndata: x\n\n");
    EXPECT_EQ(host.Chunks()[1].second, WH_CHUNK_LAST);
}

// Every JSON envelope, whoever sends it, has the same bytes: the styled layout with three blanks
// per level, sorted keys and a final newline (never tabs); text beyond ASCII as \u escapes.
TEST_F(WebSharedTest, EveryEnvelopeHasTheStyledLayout) {
    const std::string refused =
        "{\n   \"errmsg\" : \"\\u8bf7\\u6c42\\u4e0d\\u5408\\u6cd5\",\n"
        "   \"status\" : \"failed\"\n}\n";
    const std::string success =
        "{\n   \"data\" : {\n      \"list\" : [ \"a\" ],\n"
        "      \"n\" : {\n         \"deep\" : 1\n      }\n   },\n"
        "   \"errmsg\" : \"\",\n   \"status\" : \"success\"\n}\n";
    static const char* const kRefusal = "请求不合法";
    static Json::Value data;
    data["list"][0] = "a";
    data["n"]["deep"] = 1;
    const struct {
        const char* what;
        void (*send)(st_wh_info*);
        const std::string& expected;
    } cases[] = {
        {"token check", [](st_wh_info* i) { BSCheckToken(i); }, refused},
        {"library error", [](st_wh_info* i) { CBSWork().SendErrorWebSession(i, "", kRefusal, ""); },
         refused},
        {"console error", [](st_wh_info* i) { console::ReplyError(i, kRefusal); }, refused},
        {"library success", [](st_wh_info* i) { CBSWork().SendSuccessWebSession(i, "", data, ""); },
         success},
        {"console success", [](st_wh_info* i) { console::ReplyOk(i, data); }, success},
    };
    for (const auto& c : cases) {
        ws_test::HostDouble request;  // no referring page: the token check refuses it
        request.Method(WH_METHOD_POST).Host("h").NoBody();
        c.send(request.Info());
        EXPECT_EQ(request.BodySent(), c.expected) << c.what;
    }
}

}  // namespace
