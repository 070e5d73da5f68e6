// A plain model of the host's address rules for the fuzz targets: addresses and CIDR ranges (an
// IPv4 address kept as ::ffff:a.b.c.d), range lists, matching bit by bit, the entries of
// X-Forwarded-For and the client-address walk. Text to bytes and back goes through libc's
// inet_pton and inet_ntop; everything else is written from the documented rules.
#pragma once

#include <arpa/inet.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace ws_fuzz {

struct ModelRange {
    uint8_t bytes[16] = {0};
    int prefix = 128;
    bool operator==(const ModelRange& o) const {
        return prefix == o.prefix && std::memcmp(bytes, o.bytes, 16) == 0;
    }
};

inline bool Digits(const std::string& text, size_t most) {
    if (text.empty() || text.size() > most)
        return false;
    for (const char c : text) {
        if (c < '0' || c > '9')
            return false;
    }
    return true;
}

// An address: dotted IPv4 (no ":") or IPv6 text; nothing else.
inline bool ModelAddress(const std::string& text, ModelRange& out) {
    if (text.find('\0') != std::string::npos)
        return false;
    out = ModelRange();
    if (text.find(':') == std::string::npos) {
        uint8_t v4[4];
        if (inet_pton(AF_INET, text.c_str(), v4) != 1)
            return false;
        out.bytes[10] = out.bytes[11] = 0xff;
        std::memcpy(out.bytes + 12, v4, 4);
        return true;
    }
    return inet_pton(AF_INET6, text.c_str(), out.bytes) == 1;
}

inline bool Bit(const uint8_t bytes[16], int bit) {
    return (bytes[bit / 8] >> (7 - bit % 8)) & 1;
}

// An address, or an address, "/" and 1 to 3 digits of prefix (at most 32 for IPv4, 128 for
// IPv6); no bit beyond the prefix may be set.
inline bool ModelParseRange(const std::string& text, ModelRange& out) {
    const size_t slash = text.find('/');
    if (slash == std::string::npos)
        return ModelAddress(text, out);
    const std::string address = text.substr(0, slash);
    const std::string bits = text.substr(slash + 1);
    if (!Digits(bits, 3) || !ModelAddress(address, out))
        return false;
    const bool v4 = address.find(':') == std::string::npos;
    const int prefix = std::stoi(bits);
    if (prefix > (v4 ? 32 : 128))
        return false;
    out.prefix = v4 ? prefix + 96 : prefix;
    for (int bit = out.prefix; bit < 128; ++bit) {
        if (Bit(out.bytes, bit))
            return false;
    }
    return true;
}

// Items separated by ",", ";", blanks or tabs; false with `bad` at the first item that is not a
// range.
inline bool ModelRangeList(const std::string& text, std::vector<ModelRange>& out,
                           std::string& bad) {
    out.clear();
    std::string item;
    const std::string separated = text + ",";
    for (const char c : separated) {
        if (c != ',' && c != ';' && c != ' ' && c != '\t') {
            item += c;
            continue;
        }
        if (item.empty())
            continue;
        ModelRange range;
        if (!ModelParseRange(item, range)) {
            bad = item;
            return false;
        }
        out.push_back(range);
        item.clear();
    }
    return true;
}

inline bool ModelInRange(const ModelRange& range, const ModelRange& address) {
    for (int bit = 0; bit < range.prefix; ++bit) {
        if (Bit(range.bytes, bit) != Bit(address.bytes, bit))
            return false;
    }
    return true;
}

inline bool ModelTrusted(const std::vector<ModelRange>& ranges, const ModelRange& address) {
    for (const ModelRange& r : ranges) {
        if (ModelInRange(r, address))
            return true;
    }
    return false;
}

inline std::string ModelText(const ModelRange& address) {
    char buf[INET6_ADDRSTRLEN] = {0};
    static const uint8_t kMapped[12] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff};
    if (std::memcmp(address.bytes, kMapped, 12) == 0)
        return inet_ntop(AF_INET, address.bytes + 12, buf, sizeof buf) ? buf : "";
    return inet_ntop(AF_INET6, address.bytes, buf, sizeof buf) ? buf : "";
}

// An entry of X-Forwarded-For: an address; an IPv4 address, ":" and a port; a bracketed IPv6
// address, optionally followed by ":" and a port. A port is 1 to 5 digits.
inline bool ModelHop(const std::string& text, ModelRange& out) {
    if (ModelAddress(text, out))
        return true;
    if (!text.empty() && text[0] == '[') {
        const size_t close = text.find(']');
        if (close == std::string::npos)
            return false;
        const std::string inside = text.substr(1, close - 1);
        const std::string rest = text.substr(close + 1);
        if (!rest.empty() && (rest[0] != ':' || !Digits(rest.substr(1), 5)))
            return false;
        return inside.find(':') != std::string::npos && ModelAddress(inside, out);
    }
    const size_t colon = text.find(':');
    if (colon == std::string::npos || text.find(':', colon + 1) != std::string::npos)
        return false;
    return Digits(text.substr(colon + 1), 5) && ModelAddress(text.substr(0, colon), out);
}

// The client's address: the peer unless the header is present and the peer is a trusted proxy;
// then the header's entries from the right, at most 32 of them (empty ones count, and are
// passed over): a trusted hop becomes the last trusted hop, the first other address is the
// client, an entry that is no address ends the walk at the last trusted hop.
inline std::string ModelClient(const std::vector<ModelRange>& trusted, const std::string& peer,
                               const std::string& forwardedFor) {
    ModelRange peerAddress;
    if (forwardedFor.empty() || trusted.empty() || !ModelAddress(peer, peerAddress) ||
        !ModelTrusted(trusted, peerAddress))
        return peer;
    std::vector<std::string> entries(1);
    for (const char c : forwardedFor) {
        if (c == ',')
            entries.emplace_back();
        else
            entries.back() += c;
    }
    std::string nearest = peer;
    int looked = 0;
    for (auto it = entries.rbegin(); it != entries.rend() && looked < 32; ++it, ++looked) {
        size_t b = 0, e = it->size();
        while (b < e && ((*it)[b] == ' ' || (*it)[b] == '\t'))
            ++b;
        while (e > b && ((*it)[e - 1] == ' ' || (*it)[e - 1] == '\t'))
            --e;
        const std::string entry = it->substr(b, e - b);
        if (entry.empty())
            continue;
        ModelRange hop;
        if (!ModelHop(entry, hop))
            return nearest;
        if (!ModelTrusted(trusted, hop))
            return ModelText(hop);
        nearest = ModelText(hop);
    }
    return nearest;
}

}  // namespace ws_fuzz
