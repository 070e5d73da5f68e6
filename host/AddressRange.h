// AddressRange: IPv4 and IPv6 addresses and CIDR ranges, and the client-address rule for requests
// that come through our own reverse proxies. Plain functions without global state.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace wh {

// One address range. IPv4 is kept as an IPv4-mapped IPv6 address (::ffff:a.b.c.d, prefix + 96),
// so that a peer CivetWeb reports in either form matches the same ranges.
struct AddressRange {
    uint8_t bytes[16] = {0};
    int prefix = 128;  // leading bits that must match, 0..128
};

// Parses one address ("192.0.2.7", "2001:db8::1", "::ffff:192.0.2.7") into a full-length range.
// False for anything else (host names, ports, blanks, zone ids).
bool ParseAddress(const std::string& text, AddressRange& out);

// Parses one range: an address, or an address, "/" and a prefix length (0..32 for IPv4, 0..128
// for IPv6). Bits beyond the prefix must be zero ("10.0.0.1/8" is refused: a typo for a host or a
// range, we cannot tell which).
bool ParseRange(const std::string& text, AddressRange& out);

// Parses a list of ranges separated by ",", ";" or blanks. False with `bad` set to the first item
// that is not a range.
bool ParseRangeList(const std::string& text, std::vector<AddressRange>& out, std::string& bad);

// True when `address` lies within `range`.
bool InRange(const AddressRange& range, const AddressRange& address);
// True when `address` (text) is an address within one of `ranges`.
bool InRanges(const std::vector<AddressRange>& ranges, const std::string& address);

// The canonical text of an address (IPv4 in dotted form, IPv6 as inet_ntop writes it).
std::string AddressText(const AddressRange& address);

// The client's address for a request from `peer` carrying `forwardedFor` (the X-Forwarded-For
// header, "" when absent). From a peer outside `trustedProxies` the header is ignored and the
// peer is the client. From a trusted proxy the header is walked from the right (the hop nearest
// to us): trusted hops are passed over, and the first other entry is the client, in canonical
// form. An entry that is not an address (a forged or broken chain) ends the walk: the client is
// then the last trusted hop, so a hostile header can never name an address of its choosing
// beyond the proxies we know. At most kMaxForwardedHops entries are looked at.
std::string ClientAddress(const std::vector<AddressRange>& trustedProxies, const std::string& peer,
                          const std::string& forwardedFor);
const int kMaxForwardedHops = 32;

}  // namespace wh
