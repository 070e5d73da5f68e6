// Fuzz target: Url's percent-encoding and decoding (buffer and string forms), the split of a URL
// into its fields, and the query-string maps, each against the plain models of UrlModel.h.
//
// Input: any bytes, used as the text to encode, the text to decode, a whole URL, the part from
// the path on, and a query string. Its length chooses the third encoding mask (length mod 8)
// and the two flags of ParseUrl (length / 8 mod 4), so that every input stays cheap.
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "fuzz/FuzzCheck.h"
#include "fuzz/UrlModel.h"
#include "web/Url.h"

namespace {

using ws_fuzz::Show;
using Params = std::map<std::string, std::string>;

// Encoding with the library's two masks (2 form mode, 4 paths) and one more chosen by the
// input: the size asked for, a buffer one byte short, an exact buffer, the string forms, and
// decoding back to the text (a kept "+" reads back as a blank).
void CheckEncode(const std::string& src, int otherMask) {
    for (const int mask : {2, 4, otherMask}) {
        int need = 0;
        const std::string want = ws_fuzz::ModelEncode(src, mask, &need);
        auto what = [&] { return "mask " + std::to_string(mask) + " src " + Show(src); };

        int size = -1;
        FUZZ_EQ(Url::EncodeUrl(src.c_str(), nullptr, size, mask), need, what());
        FUZZ_EQ(size, need, what());
        if (need > 1) {
            std::vector<char> shortBuf(static_cast<size_t>(need - 1), '\x5a');
            size = need - 1;
            FUZZ_EQ(Url::EncodeUrl(src.c_str(), shortBuf.data(), size, mask), 0, what());
            FUZZ_EQ(size, need, what());
            FUZZ_CHECK(shortBuf == std::vector<char>(shortBuf.size(), '\x5a'), what());
        }
        std::vector<char> exact(static_cast<size_t>(need), '\x5a');
        size = need;
        const int written = Url::EncodeUrl(src.c_str(), exact.data(), size, mask);
        FUZZ_EQ(written, static_cast<int>(want.size()), what());
        FUZZ_EQ(size, written, what());
        FUZZ_EQ(std::string(exact.data(), static_cast<size_t>(written)), want, what());
        FUZZ_EQ(exact[static_cast<size_t>(written)], '\0', what());

        FUZZ_EQ(Url::EncodeUrl(src, mask, false), want, what());
        FUZZ_EQ(Url::EncodeUrl(src, mask, true), want, what());

        std::string back = src;
        if (mask & 4) {
            for (char& c : back)
                c = c == '+' ? ' ' : c;
        }
        FUZZ_EQ(Url::DecodeUrl(want, false), back, what() + " encoded " + Show(want));
        FUZZ_EQ(Url::DecodeUrl(want, true), back, what() + " encoded " + Show(want));
    }
}

void CheckDecode(const std::string& src) {
    const std::string bytes = ws_fuzz::ModelDecodeBytes(src);
    std::vector<char> out(src.size() + 1, '\x5a');
    int length = -1;
    const int got = Url::DecodeUrl(src.c_str(), out.data(), length);
    FUZZ_EQ(got, static_cast<int>(bytes.size()), Show(src));
    FUZZ_EQ(length, got, Show(src));
    FUZZ_EQ(std::string(out.data(), bytes.size()), bytes, Show(src));
    FUZZ_EQ(out[bytes.size()], '\0', Show(src));
    length = -1;
    FUZZ_EQ(Url::DecodeUrl(src.c_str(), nullptr, length), 0, Show(src));
    FUZZ_EQ(Url::DecodeUrl(src, false), ws_fuzz::ModelDecode(src, false), Show(src));
    FUZZ_EQ(Url::DecodeUrl(src, true), ws_fuzz::ModelDecode(src, true), Show(src));
}

template <typename What>
void CheckParts(const Url& url, const ws_fuzz::UriParts& want, What what) {
    FUZZ_EQ(url.GetPath(), want.path, what() + " path " + Show(url.GetPath()));
    FUZZ_EQ(url.GetQueryString(), want.query, what() + " query " + Show(url.GetQueryString()));
    FUZZ_EQ(url.GetFragment(), want.fragment, what() + " fragment " + Show(url.GetFragment()));
    const size_t dot = want.path.rfind('.');
    FUZZ_EQ(url.GetUrlType(), dot == std::string::npos ? "" : want.path.substr(dot + 1), what());
}

void CheckParse(const std::string& text, int flags) {
    Url uri;
    FUZZ_CHECK(uri.ParseUri(text), Show(text));
    CheckParts(uri, ws_fuzz::ModelUri(text), [&] { return "ParseUri " + Show(text); });

    const bool decode = (flags & 1) != 0;
    const bool fromUtf8 = (flags & 2) != 0;
    auto what = [&] { return "ParseUrl flags " + std::to_string(flags) + " " + Show(text); };
    auto remainder = [&](const std::string& rest) {
        return decode ? ws_fuzz::ModelDecode(rest, fromUtf8) : rest;
    };
    Url url;
    FUZZ_EQ(url.ParseUrl(text, decode, fromUtf8), !text.empty(), what());
    FUZZ_EQ(url.GetWholeUrl(), text, what());
    if (text.empty())
        return;
    const size_t drive = text.find(":\\");
    const size_t colon = text.find(":/");
    if (colon != std::string::npos && (drive == std::string::npos || colon < drive)) {
        FUZZ_EQ(url.GetScheme(), text.substr(0, colon), what());
        size_t pos = colon + 1;
        while (pos < text.size() && (text[pos] == '/' || text[pos] == '\\'))
            ++pos;
        const size_t slash = text.find('/', pos);
        const std::string authority =
            text.substr(pos, slash == std::string::npos ? std::string::npos : slash - pos);
        // Host and port come from the end of the authority (after any "user@"); an empty
        // port may or may not have had its ":".
        auto endsWith = [&authority](const std::string& tail) {
            return authority.size() >= tail.size() &&
                   authority.compare(authority.size() - tail.size(), tail.size(), tail) == 0;
        };
        const std::string& host = url.GetHost();
        const std::string& port = url.GetPort();
        FUZZ_CHECK(endsWith(host + ":" + port) || (port.empty() && endsWith(host)),
                   what() + " host " + Show(host) + " port " + Show(port));
        CheckParts(url,
                   ws_fuzz::ModelUri(slash == std::string::npos ? std::string()
                                                                : remainder(text.substr(slash))),
                   what);
    } else {
        FUZZ_CHECK(url.GetScheme().empty() && url.GetHost().empty() && url.GetPort().empty(),
                   what());
        CheckParts(url, ws_fuzz::ModelUri(remainder(text)), what);
    }
}

// The query maps add to what the caller's map holds; an empty query leaves it alone.
void CheckQuery(const std::string& query) {
    const Params start = {{"\x01kept", "before"}};
    Url url;
    url.SetQueryString(query);
    for (int flags = 0; flags < 4; ++flags) {
        const bool convert = (flags & 1) != 0;
        const bool pieces = (flags & 2) != 0;
        Params got = start;
        Params want = start;
        const bool ok = url.GetQueryStringMapEx(got, convert, pieces);
        FUZZ_EQ(ok, ws_fuzz::ModelMap(query, want, true, convert, pieces),
                "flags " + std::to_string(flags) + " " + Show(query));
        FUZZ_CHECK(got == want, "flags " + std::to_string(flags) + " " + Show(query));
    }
    Params got = start;
    Params want = start;
    FUZZ_EQ(url.GetQueryStringMap(got), ws_fuzz::ModelMap(query, want, false, false, false),
            Show(query));
    FUZZ_CHECK(got == want, Show(query));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string input(reinterpret_cast<const char*>(data), size);
    const std::string text = ws_fuzz::CText(input);
    // The mask and the URL flags that vary with the input come from its length.
    CheckEncode(text, static_cast<int>(size % 8));
    CheckDecode(text);
    CheckParse(input, static_cast<int>(size / 8 % 4));
    CheckQuery(input);
    return 0;
}
