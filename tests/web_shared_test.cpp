// Every JSON envelope, whoever sends it (the token check, the response writer, the console),
// through libwebsession.so's exported names: the same bytes in the styled layout.
#include <gtest/gtest.h>

#include <string>

#include "console/ConsoleCommon.h"
#include "session/SessionApi.h"
#include "tests/support/HostDouble.h"
#include "web/BSWork.h"

namespace {

// Three blanks per level, sorted keys and a final newline (never tabs); text beyond ASCII as
// \u escapes.
TEST(WebSharedTest, EveryEnvelopeHasTheStyledLayout) {
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
