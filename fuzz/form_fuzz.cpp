// Fuzz target: form bodies. The body maps of Url (plain and Ex forms, every flag) against the
// model of UrlModel.h, and encode -> parse as the identity on maps of names and values.
//
// Input: the body itself; and, read as lines of "name<TAB>value", a map to encode into a body.
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>

#include "fuzz/FuzzCheck.h"
#include "fuzz/UrlModel.h"
#include "web/Url.h"

namespace {

using ws_fuzz::Show;
using Params = std::map<std::string, std::string>;

std::string ShowMap(const Params& params) {
    std::string out;
    for (const auto& p : params)
        out += Show(p.first) + " = " + Show(p.second) + "\n";
    return out;
}

void CheckBody(const std::string& body) {
    const Params start = {{"\x01kept", "before"}};
    for (int flags = 0; flags < 4; ++flags) {
        const bool convert = (flags & 1) != 0;
        const bool pieces = (flags & 2) != 0;
        auto what = [&] { return "flags " + std::to_string(flags) + " body " + Show(body); };
        Params got = start;
        Params want = start;
        FUZZ_EQ(Url::CovertPostStringToMapEx(body, got, convert, pieces),
                ws_fuzz::ModelMap(body, want, true, convert, pieces), what());
        FUZZ_CHECK(got == want, what() + "\n got " + ShowMap(got) + "want " + ShowMap(want));
    }
    Params got = start;
    Params want = start;
    FUZZ_EQ(Url::CovertPostStringToMap(body, got),
            ws_fuzz::ModelMap(body, want, false, false, false), Show(body));
    FUZZ_CHECK(got == want, Show(body) + "\n got " + ShowMap(got) + "want " + ShowMap(want));
}

// A map encoded as a browser sends a form (form mode, "name=value" joined by "&") reads back
// as the same map when each piece is decoded on its own; decoding the whole body first gives
// the same map too as long as nothing holds "&". Form mode never escapes "=", so a name holding
// one cannot be sent this way and is left out.
void CheckRoundTrip(const std::string& input) {
    Params sent;
    for (const std::string& line : ws_fuzz::Split(ws_fuzz::CText(input), '\n')) {
        const size_t tab = line.find('\t');
        const std::string name = line.substr(0, tab);
        if (name.find('=') == std::string::npos)
            sent[name] = tab == std::string::npos ? "" : line.substr(tab + 1);
    }
    std::string body;
    bool splitSafe = true;
    for (const auto& p : sent) {
        if (!body.empty())
            body += '&';
        body += Url::EncodeUrl(p.first, 2, false) + "=" + Url::EncodeUrl(p.second, 2, true);
        splitSafe = splitSafe && p.first.find('&') == std::string::npos &&
                    p.second.find('&') == std::string::npos;
    }
    for (const bool convert : {false, true}) {
        Params got;
        FUZZ_EQ(Url::CovertPostStringToMapEx(body, got, convert, true), !sent.empty(), Show(body));
        FUZZ_CHECK(got == sent,
                   "body " + Show(body) + "\n got " + ShowMap(got) + "sent " + ShowMap(sent));
        if (splitSafe) {
            Params whole;
            Url::CovertPostStringToMapEx(body, whole, convert, false);
            FUZZ_CHECK(whole == sent,
                       "body " + Show(body) + "\n got " + ShowMap(whole) + "sent " + ShowMap(sent));
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string input(reinterpret_cast<const char*>(data), size);
    CheckBody(input);
    CheckRoundTrip(input);
    return 0;
}
