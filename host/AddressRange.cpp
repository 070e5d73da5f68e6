// AddressRange: parsing addresses and CIDR ranges, matching, and the X-Forwarded-For rule.
#include "host/AddressRange.h"

#include <arpa/inet.h>

#include <cstdlib>
#include <cstring>

namespace wh {

namespace {

bool IsBlank(char c) {
    return c == ' ' || c == '\t';
}

std::string Trim(const std::string& text) {
    size_t b = 0, e = text.size();
    while (b < e && IsBlank(text[b]))
        ++b;
    while (e > b && IsBlank(text[e - 1]))
        --e;
    return text.substr(b, e - b);
}

// An entry of X-Forwarded-For as proxies write it: an address, an IPv4 address with ":port",
// or a bracketed IPv6 address with or without ":port".
bool ParseHop(const std::string& text, AddressRange& out) {
    if (ParseAddress(text, out))
        return true;
    if (!text.empty() && text[0] == '[') {
        std::string::size_type close = text.find(']');
        if (close == std::string::npos)
            return false;
        std::string rest = text.substr(close + 1);
        if (!rest.empty() && (rest[0] != ':' || rest.size() > 6 ||
                              rest.find_first_not_of("0123456789", 1) != std::string::npos))
            return false;
        return text.find(':') < close && ParseAddress(text.substr(1, close - 1), out);
    }
    std::string::size_type colon = text.find(':');
    if (colon == std::string::npos || text.find(':', colon + 1) != std::string::npos)
        return false;
    std::string port = text.substr(colon + 1);
    if (port.empty() || port.size() > 5 || port.find_first_not_of("0123456789") != port.npos)
        return false;
    return ParseAddress(text.substr(0, colon), out) && out.bytes[10] == 0xff;
}

}  // namespace

bool ParseAddress(const std::string& text, AddressRange& out) {
    if (text.empty() || text.size() > 45)
        return false;
    in_addr v4;
    if (text.find(':') == std::string::npos) {
        if (::inet_pton(AF_INET, text.c_str(), &v4) != 1)
            return false;
        std::memset(out.bytes, 0, 10);
        out.bytes[10] = out.bytes[11] = 0xff;
        std::memcpy(out.bytes + 12, &v4, 4);
        out.prefix = 128;
        return true;
    }
    if (::inet_pton(AF_INET6, text.c_str(), out.bytes) != 1)
        return false;
    out.prefix = 128;
    return true;
}

bool ParseRange(const std::string& text, AddressRange& out) {
    std::string::size_type slash = text.find('/');
    if (slash == std::string::npos)
        return ParseAddress(text, out);
    std::string bits = text.substr(slash + 1);
    if (bits.empty() || bits.size() > 3 || bits.find_first_not_of("0123456789") != bits.npos)
        return false;
    const std::string address = text.substr(0, slash);
    if (!ParseAddress(address, out))
        return false;
    const bool v4 = address.find(':') == std::string::npos;
    int prefix = std::atoi(bits.c_str());
    if (prefix > (v4 ? 32 : 128))
        return false;
    out.prefix = v4 ? prefix + 96 : prefix;
    for (int bit = out.prefix; bit < 128; ++bit) {
        if (out.bytes[bit / 8] & (0x80 >> (bit % 8)))
            return false;
    }
    return true;
}

bool ParseRangeList(const std::string& text, std::vector<AddressRange>& out, std::string& bad) {
    out.clear();
    std::string item;
    for (size_t i = 0; i <= text.size(); ++i) {
        const char c = i < text.size() ? text[i] : ',';
        if (c != ',' && c != ';' && !IsBlank(c)) {
            item += c;
            continue;
        }
        if (item.empty())
            continue;
        AddressRange range;
        if (!ParseRange(item, range)) {
            bad = item;
            return false;
        }
        out.push_back(range);
        item.clear();
    }
    return true;
}

bool InRange(const AddressRange& range, const AddressRange& address) {
    const int whole = range.prefix / 8;
    if (std::memcmp(range.bytes, address.bytes, static_cast<size_t>(whole)) != 0)
        return false;
    const int rest = range.prefix % 8;
    if (rest == 0)
        return true;
    const uint8_t mask = static_cast<uint8_t>(0xff00 >> rest);
    return (range.bytes[whole] & mask) == (address.bytes[whole] & mask);
}

bool InRanges(const std::vector<AddressRange>& ranges, const std::string& address) {
    AddressRange a;
    if (ranges.empty() || !ParseAddress(address, a))
        return false;
    for (const AddressRange& r : ranges) {
        if (InRange(r, a))
            return true;
    }
    return false;
}

std::string AddressText(const AddressRange& address) {
    char buf[INET6_ADDRSTRLEN];
    static const uint8_t kMapped[12] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff};
    if (std::memcmp(address.bytes, kMapped, 12) == 0)
        return ::inet_ntop(AF_INET, address.bytes + 12, buf, sizeof(buf)) ? buf : "";
    return ::inet_ntop(AF_INET6, address.bytes, buf, sizeof(buf)) ? buf : "";
}

std::string ClientAddress(const std::vector<AddressRange>& trustedProxies, const std::string& peer,
                          const std::string& forwardedFor) {
    if (forwardedFor.empty() || !InRanges(trustedProxies, peer))
        return peer;
    std::string nearest = peer;  // the last hop we trust
    std::string::size_type end = forwardedFor.size();
    for (int hops = 0; hops < kMaxForwardedHops; ++hops) {
        std::string::size_type comma =
            end == 0 ? std::string::npos : forwardedFor.rfind(',', end - 1);
        std::string::size_type begin = comma == std::string::npos ? 0 : comma + 1;
        std::string entry = Trim(forwardedFor.substr(begin, end - begin));
        if (!entry.empty()) {
            AddressRange hop;
            if (!ParseHop(entry, hop))
                return nearest;  // a broken or forged chain: nothing beyond it is believed
            bool trusted = false;
            for (const AddressRange& r : trustedProxies)
                trusted = trusted || InRange(r, hop);
            if (!trusted)
                return AddressText(hop);
            nearest = AddressText(hop);
        }
        if (comma == std::string::npos)
            return nearest;
        end = comma;
    }
    return nearest;  // a chain longer than any real one: its far end is not believed
}

}  // namespace wh
