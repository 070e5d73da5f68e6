// Fuzz target: the host's address ranges and its X-Forwarded-For rule (host/AddressRange.h).
//
// Input: three lines, each cut at its first zero byte (every real source is C text): the
// TrustedProxies list, the peer's address, and the X-Forwarded-For header (the rest).
//
// Properties: the range list, each range and the peer's address parse as the model of
// AddressModel.h parses them; matching agrees with a bit-by-bit model; an address's canonical
// text reads back as the same address; and the client's address is the model's: the peer
// unless it is a trusted proxy, otherwise the right-most entry that is not a trusted proxy, the
// last trusted hop when the chain breaks, is all trusted or runs past 32 entries.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "fuzz/AddressModel.h"
#include "fuzz/FuzzCheck.h"
#include "host/AddressRange.h"

namespace {

using ws_fuzz::ModelRange;
using ws_fuzz::Show;

bool Same(const wh::AddressRange& a, const ModelRange& b) {
    return a.prefix == b.prefix && std::memcmp(a.bytes, b.bytes, 16) == 0;
}

void CheckAddress(const std::string& text, const std::string& what) {
    wh::AddressRange got;
    ModelRange want;
    const bool ok = wh::ParseAddress(text, got);
    FUZZ_EQ(ok, ws_fuzz::ModelAddress(text, want), what + Show(text));
    if (!ok)
        return;
    FUZZ_CHECK(Same(got, want), what + Show(text));
    // The canonical text names the same address.
    const std::string canonical = wh::AddressText(got);
    FUZZ_EQ(canonical, ws_fuzz::ModelText(want), what + Show(text));
    wh::AddressRange back;
    FUZZ_CHECK(wh::ParseAddress(canonical, back) && Same(back, want), what + Show(canonical));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string input(reinterpret_cast<const char*>(data), size);
    const size_t first = input.find('\n');
    const size_t second = first == std::string::npos ? first : input.find('\n', first + 1);
    const std::string list = ws_fuzz::CText(input.substr(0, first));
    const std::string peer = first == std::string::npos
                                 ? ""
                                 : ws_fuzz::CText(input.substr(first + 1, second - first - 1));
    const std::string header =
        second == std::string::npos ? "" : ws_fuzz::CText(input.substr(second + 1));
    const std::string what =
        "list " + Show(list) + "\npeer " + Show(peer) + "\nheader " + Show(header) + "\n";

    std::vector<wh::AddressRange> ranges;
    std::vector<ModelRange> model;
    std::string bad, modelBad;
    const bool ok = wh::ParseRangeList(list, ranges, bad);
    FUZZ_EQ(ok, ws_fuzz::ModelRangeList(list, model, modelBad), what);
    if (!ok) {
        FUZZ_EQ(bad, modelBad, what);
        // A list that does not parse stops the host; the rule below runs without ranges.
        ranges.clear();
        model.clear();
    }
    FUZZ_EQ(ranges.size(), model.size(), what);
    for (size_t i = 0; i < ranges.size(); ++i)
        FUZZ_CHECK(Same(ranges[i], model[i]), what + "range " + std::to_string(i));

    // Each item of the list on its own, the ones after a bad item included.
    std::string item;
    for (const char c : list + ",") {
        if (c != ',' && c != ';' && c != ' ' && c != '\t') {
            item += c;
            continue;
        }
        if (item.empty())
            continue;
        wh::AddressRange got;
        ModelRange range;
        const bool parsed = wh::ParseRange(item, got);
        FUZZ_EQ(parsed, ws_fuzz::ModelParseRange(item, range), what + "item " + Show(item));
        FUZZ_CHECK(!parsed || Same(got, range), what + "item " + Show(item));
        item.clear();
    }

    CheckAddress(peer, what);
    ModelRange peerAddress;
    const bool peerTrusted = !model.empty() && ws_fuzz::ModelAddress(peer, peerAddress) &&
                             ws_fuzz::ModelTrusted(model, peerAddress);
    FUZZ_EQ(wh::InRanges(ranges, peer), peerTrusted, what);

    const std::string client = wh::ClientAddress(ranges, peer, header);
    const std::string want = ws_fuzz::ModelClient(model, peer, header);
    FUZZ_EQ(client, want, what + "client " + Show(client) + "\nwant   " + Show(want));
    if (!peerTrusted)
        FUZZ_EQ(client, peer, what);
    return 0;
}
