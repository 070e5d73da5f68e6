// Fuzz target: a whole request through the gate Web_SessionInit, on a recording host double.
//
// Input: the first byte holds the request's switches (bits 0-2 the method, 3 checkSession,
// 4 readPost, 5 decode, 6 whether the host has a body); the rest is the Cookie header, a line
// feed, the query string, a line feed and the body (which may hold more line feeds).
//
// Properties: the result, the parameter map and the callback name agree with a model of the
// gate's steps built on the URL, cookie and filter models (and the library's own unscrambling,
// fuzzed through here as well); a request the gate lets through holds no parameter the filter
// refuses; an answer is sent exactly when documented (a body the parser refuses, a timed-out
// session) as one head and one well-formed JSON envelope, byte for byte the styled writer's
// text, wrapped for the callback; nothing is sent otherwise.
//
// The target runs from a copy of itself in a private installation tree (as the relocated tests
// do), so that the session table's database and logs never touch the build tree. One session
// is live: "fuzz-live-session".
#include <json/json.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <list>
#include <map>
#include <string>
#include <vector>

#include "common/StrWork.h"
#include "fuzz/FuzzCheck.h"
#include "fuzz/UrlModel.h"
#include "fuzz/XssModel.h"
#include "session/CookieRule.h"
#include "session/SessionApi.h"
#include "tests/support/HostDouble.h"
#include "tests/support/TestTree.h"
#include "web/BSWork.h"

namespace {

using Params = std::map<std::string, std::string>;
using ws_fuzz::Show;

const char* const kLiveSession = "fuzz-live-session";

std::string ShowMap(const Params& params) {
    std::string out;
    for (const auto& p : params)
        out += Show(p.first) + " = " + Show(p.second) + "\n";
    return out;
}

std::string Styled(const Json::Value& value) {
    Json::StyledWriter writer;
    return writer.write(value);
}

struct Expected {
    uint32_t result = 0;
    Params params;
    std::string callback;
    std::string body;  // what must be sent; "" for nothing
};

// The gate's steps, each from its documented rule.
Expected Model(uint32_t method, bool checkSession, bool readPost, bool decode, bool hasBody,
               const std::string& cookie, const std::string& query, const std::string& body) {
    Expected e;
    ws_fuzz::ModelMap(query, e.params, true, decode, true);
    if (method == WH_METHOD_POST && readPost && hasBody) {
        const std::string text = ws_fuzz::CText(body);  // the host hands out C text
        if (text.empty()) {
            Json::Value v(Json::objectValue);
            v["status"] = "failed";
            v["errmsg"] = " Url::CovertPostStringToMapEx() Failed";
            e.result = 1;
            e.body = Styled(v);
            return e;
        }
        ws_fuzz::ModelMap(text, e.params, true, decode, true);
    }
    auto listed = e.params.find("v_dx");
    if (listed != e.params.end()) {
        // Items between ";", empty ones dropped; the first is the key.
        std::vector<std::string> items;
        for (const std::string& item : ws_fuzz::Split(listed->second, ';')) {
            if (!item.empty())
                items.push_back(item);
        }
        for (size_t i = 1; i < items.size(); ++i) {
            auto param = e.params.find(items[i]);
            if (param != e.params.end())
                param->second = CBSWork().decrypt(param->second, items[0]);
        }
    }
    auto named = e.params.find("callbackparam");
    for (const char c : named == e.params.end() ? std::string() : named->second) {
        if (c != '<')
            e.callback += c;
    }
    if (checkSession && GetCookieValueByRule(cookie, "qvsessionid") != kLiveSession) {
        Json::Value v(Json::objectValue);
        v["status"] = "SessionTimeOut";
        const std::string json = Styled(v);
        e.result = 1;
        e.body = e.callback.empty() ? json : e.callback + "(" + json + ");";
        return e;
    }
    e.result = ws_fuzz::ModelXss(e.params) == 1 ? 0 : 1;
    return e;
}

// Reruns this program from a copy in a private installation tree and exits with its status.
void RelocateOrContinue(char** argv) {
    if (std::getenv("WS_TEST_ROOT") != nullptr)
        return;
    int status = 0;
    {
        const std::string self = ws_test::SelfExe();
        const std::string name = self.substr(self.rfind('/') + 1);
        ws_test::TempTree tree(name);
        const std::string copy = tree.Path("bin/" + name);
        if (!ws_test::CopyExecutable(self, copy)) {
            std::fprintf(stderr, "cannot copy %s to %s\n", self.c_str(), copy.c_str());
            std::exit(2);
        }
        ::setenv("WS_TEST_ROOT", tree.Root().c_str(), 1);
        const pid_t pid = ::fork();
        if (pid == 0) {
            argv[0] = const_cast<char*>(copy.c_str());
            ::execv(copy.c_str(), argv);
            ::_exit(127);
        }
        int wstatus = 0;
        ::waitpid(pid, &wstatus, 0);
        status = WIFEXITED(wstatus) ? WEXITSTATUS(wstatus) : 128 + WTERMSIG(wstatus);
    }
    std::exit(status);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char*** argv) {
    RelocateOrContinue(*argv);
    BSInitSession();
    std::string id = kLiveSession;
    BSAddSession(id, "fuzz", "fuzzco", 1, 0, "127.0.0.1");
    if (id != kLiveSession || BSWhetherSessionIdTimeOut(kLiveSession)) {
        std::fprintf(stderr, "the live session could not be added\n");
        std::abort();
    }
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0)
        return 0;
    const uint8_t switches = data[0];
    const std::string rest(reinterpret_cast<const char*>(data) + 1, size - 1);
    const size_t first = rest.find('\n');
    const size_t second = first == std::string::npos ? first : rest.find('\n', first + 1);
    const std::string cookie = rest.substr(0, first);
    const std::string query =
        first == std::string::npos ? "" : rest.substr(first + 1, second - first - 1);
    const std::string body = second == std::string::npos ? "" : rest.substr(second + 1);

    const uint32_t method = switches & 7;
    const bool checkSession = (switches & 8) != 0;
    const bool readPost = (switches & 16) != 0;
    const bool decode = (switches & 32) != 0;
    const bool hasBody = (switches & 64) != 0;

    ws_test::HostDouble host;
    host.Method(method).Cookie(cookie).Path("console/fuzz").Query(query);
    if (hasBody)
        host.Body(body);
    else
        host.NoBody();
    std::string callback;
    Params params;
    // Only the low byte of readPost counts: 256 asks for no body.
    const uint32_t result = Web_SessionInit(host.Info(), callback, params, checkSession ? 7 : 0,
                                            readPost ? 0x101 : 0x100, decode);

    const Expected want =
        Model(method, checkSession, readPost, decode, hasBody, cookie, query, body);
    const std::string what = "switches " + std::to_string(switches) + " cookie " + Show(cookie) +
                             "\nquery " + Show(query) + "\nbody " + Show(body) + "\n";
    FUZZ_EQ(result, want.result, what);
    FUZZ_CHECK(params == want.params,
               what + "params\n" + ShowMap(params) + "want\n" + ShowMap(want.params));
    FUZZ_EQ(host.ReadBodyCalls(), method == WH_METHOD_POST && readPost ? 1 : 0, what);
    FUZZ_EQ(callback, want.callback, what);

    // Let through: nothing the filter refuses, no callback name with markup.
    if (result == 0) {
        for (const auto& p : params) {
            if (p.first == "callbackparam")
                FUZZ_CHECK(p.second.find('<') == std::string::npos, what);
            else
                FUZZ_CHECK(!ws_fuzz::XssRefused(p.second), what + Show(p.second));
        }
    }

    if (want.body.empty()) {
        FUZZ_CHECK(!host.Answered(), what + "sent " + Show(host.BodySent()));
        return 0;
    }
    FUZZ_EQ(host.SendHeadCalls(), 1, what);
    const st_wh_resp& head = host.Heads().front();
    FUZZ_EQ(head.status, 200, what);
    FUZZ_EQ(head.contentType, "text/html;charset=UTF-8", what);
    FUZZ_EQ(head.contentLength, want.body.size(), what);
    FUZZ_EQ(head.bodyEncoded, want.body.size() > 1000 ? 1 : 0, what);
    FUZZ_EQ(host.BodySent(), want.body, what + "sent " + Show(host.BodySent()));
    std::string json;
    FUZZ_CHECK(host.Unwrap(callback, json), what);
    Json::Value root;
    Json::Reader reader;
    FUZZ_CHECK(reader.parse(json, root) && root.isObject() && root["status"].isString(),
               what + Show(json));
    return 0;
}
