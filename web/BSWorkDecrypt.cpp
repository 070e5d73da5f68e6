// CBSWork::decrypt: undoes the pages' light scrambling of request values (hexadecimal pairs
// XOR one key byte derived from the pass phrase and the salt at the end of the text).
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "web/BSWork.h"

namespace {

const int64_t kModulus = 2147483647;  // 2^31 - 1

int HexDigit(char c) {
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

// One pair (or the last lone digit) read the way "%x" reads it: an ordinary pair directly,
// anything unusual (blanks, signs, "0x", stray letters) through sscanf itself so that the
// result stays exactly what the pages' counterpart expects; nothing readable gives 0.
unsigned ReadPair(const std::string& text, size_t i) {
    const int hi = HexDigit(text[i]);
    if (i + 1 < text.size()) {
        const int lo = HexDigit(text[i + 1]);
        if (hi >= 0 && lo >= 0) {
            return static_cast<unsigned>(hi * 16 + lo);
        }
    } else if (hi >= 0) {
        return static_cast<unsigned>(hi);
    }
    char pair[3] = {text[i], i + 1 < text.size() ? text[i + 1] : '\0', '\0'};
    unsigned value = 0;
    if (std::sscanf(pair, "%x", &value) != 1) {
        value = 0;
    }
    return value;
}

// The digit string folded to at most 10 characters: the number of its first 10 characters plus
// the number of the rest, in unsigned 64-bit arithmetic, until it is short enough. Each part is
// read as strtoull reads it (leading digits, an optional sign; too large saturates).
std::string Fold(std::string digits) {
    while (digits.size() > 10) {
        const unsigned long long head = std::strtoull(digits.substr(0, 10).c_str(), nullptr, 10);
        const unsigned long long rest = std::strtoull(digits.c_str() + 10, nullptr, 10);
        char buf[32];
        std::snprintf(buf, sizeof(buf), "%llu", head + rest);
        digits = buf;
    }
    return digits;
}

}  // namespace

std::string CBSWork::decrypt(std::string text, std::string passPhrase) {
    // 1. The pass phrase as the decimal values of its bytes, taken as signed 8-bit numbers.
    std::string digits;
    for (char ch : passPhrase) {
        char buf[8];
        std::snprintf(buf, sizeof(buf), "%d", static_cast<int>(static_cast<signed char>(ch)));
        digits += buf;
    }
    // 2-3. The multiplier from five characters spaced evenly through the digit string; a
    // position at the very end reads the terminator, which ends the number there.
    const size_t spacing = digits.size() / 5;
    char five[6] = {0};
    for (int k = 1; k <= 5; ++k) {
        const size_t pos = spacing * static_cast<size_t>(k);
        five[k - 1] = pos < digits.size() ? digits[pos] : '\0';
    }
    const int32_t m = static_cast<int32_t>(std::strtol(five, nullptr, 10));
    // 4. Half the multiplier, rounded up.
    const int64_t c = static_cast<int64_t>(m >> 1) + static_cast<int64_t>(m & 1);
    // 5. The salt: the last 8 characters, as hexadecimal.
    if (text.size() <= 8) {
        return "";
    }
    unsigned salt = 0;
    if (std::sscanf(text.c_str() + text.size() - 8, "%x", &salt) != 1) {
        salt = 0;
    }
    text.erase(text.size() - 8);
    // 6-7. The salt joins the digit string (as a signed decimal), which is then folded.
    char saltText[16];
    std::snprintf(saltText, sizeof(saltText), "%d", static_cast<int>(salt));
    digits = Fold(digits + saltText);
    // 8-9. Seed and key byte. The same key byte serves every position: the seed is not
    // advanced between bytes, and the pages scramble the same way.
    const int64_t seedBase = std::strtoll(digits.c_str(), nullptr, 10);
    const int64_t p = (static_cast<int64_t>(m) * seedBase + c) % kModulus;
    const int64_t k = (p * 256 - p) / kModulus;
    // 10. Every pair of hexadecimal digits XOR the key byte.
    std::string out;
    out.reserve(text.size() / 2 + 1);
    for (size_t i = 0; i < text.size(); i += 2) {
        out.push_back(static_cast<char>(static_cast<int64_t>(ReadPair(text, i)) ^ k));
    }
    return out;
}
