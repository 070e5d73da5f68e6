// Shared pieces of the fuzz targets: the property check that stops the run, printable dumps of
// byte strings, and the line splitting most targets use to read their input.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace ws_fuzz {

// A property that does not hold is a finding like a crash: print what was compared and abort,
// so that libFuzzer keeps the input.
[[noreturn]] inline void Fail(const char* file, int line, const char* what,
                              const std::string& detail) {
    std::fprintf(stderr, "%s:%d: property failed: %s\n%s\n", file, line, what, detail.c_str());
    std::fflush(stderr);
    std::abort();
}

// The bytes with everything outside printable ASCII written as \xNN, cut at 300 bytes.
inline std::string Show(const std::string& bytes) {
    static const char kHex[] = "0123456789abcdef";
    std::string out = "\"";
    for (size_t i = 0; i < bytes.size() && i < 300; ++i) {
        const unsigned char c = static_cast<unsigned char>(bytes[i]);
        if (c >= 0x20 && c < 0x7f && c != '\\' && c != '"') {
            out += static_cast<char>(c);
        } else {
            out += "\\x";
            out += kHex[c >> 4];
            out += kHex[c & 15];
        }
    }
    if (bytes.size() > 300)
        out += "...";
    return out + "\" (" + std::to_string(bytes.size()) + " bytes)";
}

// Splits `text` at every `sep`; n separators give n + 1 pieces, empty ones included.
inline std::vector<std::string> Split(const std::string& text, char sep) {
    std::vector<std::string> pieces(1);
    for (const char c : text) {
        if (c == sep) {
            pieces.emplace_back();
        } else {
            pieces.back() += c;
        }
    }
    return pieces;
}

// The text up to its first zero byte, as every interface that takes a C string sees it.
inline std::string CText(const std::string& text) {
    return text.substr(0, text.find('\0'));
}

}  // namespace ws_fuzz

#define FUZZ_CHECK(cond, detail)                                  \
    do {                                                          \
        if (!(cond))                                              \
            ::ws_fuzz::Fail(__FILE__, __LINE__, #cond, (detail)); \
    } while (0)

#define FUZZ_EQ(a, b, detail)                                            \
    do {                                                                 \
        if (!((a) == (b)))                                               \
            ::ws_fuzz::Fail(__FILE__, __LINE__, #a " == " #b, (detail)); \
    } while (0)
