// Fuzz target: the cookie rule, directly and through every reader built on it (the session
// cookie, the CSRF cookie, the language cookie), against a step-by-step model of the rule.
//
// Input: a Cookie header. When it holds a line feed, the text before the first one is also used
// as a cookie name of its own and the rest is the header.
#include <cstddef>
#include <cstdint>
#include <string>

#include "fuzz/FuzzCheck.h"
#include "session/CookieRule.h"
#include "session/SessionApi.h"
#include "tests/support/HostDouble.h"
#include "web/BSWork.h"

namespace {

const size_t kNone = static_cast<size_t>(-1);

// First position at or after `from` where `what` stands in `text`, by plain comparison of every
// position (an empty `what` stands at `from`).
size_t FindAt(const std::string& text, const std::string& what, size_t from) {
    for (size_t at = from; at + what.size() <= text.size(); ++at) {
        size_t i = 0;
        while (i < what.size() && text[at + i] == what[i])
            ++i;
        if (i == what.size())
            return at;
    }
    return kNone;
}

// The rule as the library documents it: append ";", take the first occurrence of the bare name
// and the text up to the next ";", look for "name=" in that piece; the value is what follows.
std::string Model(const std::string& header, const std::string& name) {
    const std::string text = header + ";";
    const size_t at = FindAt(text, name, 0);
    if (at == kNone)
        return "";
    const size_t semi = FindAt(text, ";", at);
    if (semi == kNone)
        return "";
    const std::string piece(text.begin() + static_cast<std::ptrdiff_t>(at),
                            text.begin() + static_cast<std::ptrdiff_t>(semi));
    const size_t eq = FindAt(piece, name + "=", 0);
    if (eq == kNone)
        return "";
    return piece.substr(eq + name.size() + 1);
}

void CheckName(const std::string& header, const std::string& name) {
    const std::string got = GetCookieValueByRule(header, name);
    const std::string want = Model(header, name);
    FUZZ_EQ(got, want,
            "name " + ws_fuzz::Show(name) + " header " + ws_fuzz::Show(header) + "\n got " +
                ws_fuzz::Show(got) + "\nwant " + ws_fuzz::Show(want));
    // Whatever the rule finds runs up to a ";" and follows "name=" in the header.
    FUZZ_CHECK(got.find(';') == std::string::npos, ws_fuzz::Show(got));
    FUZZ_CHECK(got.empty() || header.find(name + "=" + got) != std::string::npos,
               ws_fuzz::Show(header) + " " + ws_fuzz::Show(got));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string input(reinterpret_cast<const char*>(data), size);
    std::string header = input;
    const size_t newline = input.find('\n');
    if (newline != std::string::npos) {
        CheckName(input.substr(newline + 1), input.substr(0, newline));
    }

    // The three cookies the library reads, through the readers a request reaches.
    ws_test::HostDouble host;
    host.Cookie(header);
    CBSWork work;
    const std::string session = BSCheckQvSession(host.Info());
    FUZZ_EQ(session, Model(header, "qvsessionid"), ws_fuzz::Show(header));
    FUZZ_EQ(work.CheckQvSession(host.Info()), session, ws_fuzz::Show(header));
    FUZZ_EQ(GetTokenFromCookie(host.Info()), Model(header, "CSRF-TOKEN"), ws_fuzz::Show(header));
    FUZZ_EQ(work.GetLan(host.Info()), Model(header, "qv_lan"), ws_fuzz::Show(header));
    CheckName(header, "qvsessionid");
    CheckName(header, "CSRF-TOKEN");
    CheckName(header, "qv_lan");
    return 0;
}
