// Test fixture of the console's loopback tests: one webharbour with libconsole.so in a private
// tree seeded through bsctl and consoleuser, and helpers for requests, tokens and log-in.
#pragma once

#include <gtest/gtest.h>
#include <json/json.h>

#include <memory>
#include <string>
#include <vector>

#include "tests/host/HostProcess.h"

namespace console_test {

using wh_test::HttpResponse;

extern const char* const kCode;  // the only code seeded, so every picture shows it

class ConsoleLoopback : public ::testing::Test {
protected:
    static void SetUpTestSuite();
    static void TearDownTestSuite();

    static std::string Tool(const std::string& name);
    // Runs a tool of the tree; expects exit status 0 unless `status` is given.
    static std::string Run(const std::string& tool, const std::vector<std::string>& args,
                           int* status = nullptr);
    // One request on a fresh connection, from a page of this host (Referer), with `cookies`
    // and the `extra` header lines.
    static HttpResponse Call(const std::string& target, const std::string& cookies,
                             const std::string* body = nullptr, const std::string& extra = "");
    static HttpResponse Post(const std::string& target, const std::string& cookies,
                             const std::string& body, const std::string& extra = "") {
        return Call(target, cookies, &body, extra);
    }
    static Json::Value JsonOf(const HttpResponse& res);
    // "name=value" of the Set-Cookie header for `name` ("" when none); `whole` gets the header.
    static std::string CookieSet(const HttpResponse& res, const std::string& name,
                                 std::string* whole = nullptr);
    static std::string FreshToken() { return CookieSet(Call("/api/token", ""), "CSRF-TOKEN"); }
    // A form key with the code handed out to it.
    static std::string CodeKey() { return CookieSet(Call("/api/code", ""), "qv_codekey"); }
    // Logs admin in; the session cookie "qvsessionid=...".
    static std::string LogIn();
    // A POST with the session and a fresh token; the answer's JSON.
    static Json::Value Change(const std::string& session, const std::string& target,
                              const std::string& body) {
        return JsonOf(Post(target, session + "; " + FreshToken(), body));
    }

    static wh_test::HostTree* s_tree;
    static wh_test::HostProcess* s_host;
};

}  // namespace console_test
