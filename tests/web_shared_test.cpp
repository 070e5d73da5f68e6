// Tests across pieces: the response writer, URL maps and the script-injection filter used the
// way a host and its page handlers use them, through libwebsession.so's exported names only.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <map>
#include <string>

#include "protect/XssFilter.h"
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

}  // namespace
