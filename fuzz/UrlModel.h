// Plain models of the URL rules for the fuzz targets: the character classes, percent-encoding
// and decoding, the splitting of a query string or form body, and the path/query/fragment split.
// Written from the documented rules, byte by byte, without the library's code.
#pragma once

#include <map>
#include <string>
#include <vector>

namespace ws_fuzz {

// Flags per byte: 7 for letters, digits and "*-.=_", 4 for "+" and "/", 0 for everything else.
inline int UrlFlags(unsigned char c) {
    if ((c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'))
        return 7;
    if (c == '*' || c == '-' || c == '.' || c == '=' || c == '_')
        return 7;
    if (c == '+' || c == '/')
        return 4;
    return 0;
}

// The encoding of the C text `src` with `mask`, and the size the buffer form asks for.
inline std::string ModelEncode(const std::string& src, int mask, int* needed = nullptr) {
    static const char kHex[] = "0123456789ABCDEF";
    std::string out;
    int need = 1;
    for (const char ch : src) {
        const unsigned char c = static_cast<unsigned char>(ch);
        const bool keep = (UrlFlags(c) & mask) != 0;
        need += keep ? 1 : 3;
        if (keep) {
            out += ch;
        } else if (mask == 2 && c == ' ') {
            out += '+';
        } else {
            out += '%';
            out += kHex[c >> 4];
            out += kHex[c & 15];
        }
    }
    if (needed != nullptr)
        *needed = need;
    return out;
}

inline int HexDigit(char ch) {
    if (ch >= '0' && ch <= '9')
        return ch - '0';
    if (ch >= 'A' && ch <= 'F')
        return ch - 'A' + 10;
    if (ch >= 'a' && ch <= 'f')
        return ch - 'a' + 10;
    return 0;  // anything else counts as 0
}

// The bytes the buffer form writes for the C text `src` (zero bytes included): "+" is a blank,
// "%" and two characters one byte, a "%" at the end ends the text, and a "%" with one character
// left gives that digit as the high nibble and ends the text.
inline std::string ModelDecodeBytes(const std::string& src) {
    std::string out;
    size_t i = 0;
    while (i < src.size()) {
        if (src[i] == '+') {
            out += ' ';
            ++i;
        } else if (src[i] == '%') {
            if (i + 1 >= src.size())
                break;
            const int high = HexDigit(src[i + 1]);
            const int low = i + 2 < src.size() ? HexDigit(src[i + 2]) : 0;
            out += static_cast<char>(high * 16 + low);
            if (i + 2 >= src.size())
                break;
            i += 3;
        } else {
            out += src[i++];
        }
    }
    return out;
}

// The string form: "" for an empty result; the bytes up to the first zero byte without the
// conversion flag, all of them with it (the local encoding is UTF-8, so nothing converts).
inline std::string ModelDecode(const std::string& src, bool convert) {
    const std::string bytes = ModelDecodeBytes(src.substr(0, src.find('\0')));
    if (bytes.empty())
        return "";
    return convert ? bytes : bytes.substr(0, bytes.find('\0'));
}

// The pieces of a "&"-separated text: empty pieces count, except a last one.
inline std::vector<std::string> ModelPieces(const std::string& text) {
    std::vector<std::string> pieces;
    if (text.empty())
        return pieces;
    std::string current;
    for (const char c : text) {
        if (c == '&') {
            pieces.push_back(current);
            current.clear();
        } else {
            current += c;
        }
    }
    if (!current.empty() || pieces.empty())
        pieces.push_back(current);
    return pieces;
}

// A query string or form body read into `out`, as the Ex map builders do: false (map untouched)
// for an empty text; the whole text decoded first unless the pieces are decoded one by one.
inline bool ModelMap(const std::string& text, std::map<std::string, std::string>& out, bool decode,
                     bool convert, bool decodePieces) {
    if (text.empty())
        return false;
    const std::string split = decode && !decodePieces ? ModelDecode(text, convert) : text;
    for (const std::string& piece : ModelPieces(split)) {
        const size_t eq = piece.find('=');
        std::string key = piece.substr(0, eq);
        std::string value = eq == std::string::npos ? std::string() : piece.substr(eq + 1);
        if (decode && decodePieces) {
            key = ModelDecode(key, convert);
            value = ModelDecode(value, convert);
        }
        out[key] = value;
    }
    return true;
}

// Path (without leading slashes), query and fragment of the part of a URL from the path on.
struct UriParts {
    std::string path, query, fragment;
};

inline UriParts ModelUri(const std::string& uri) {
    UriParts parts;
    std::string pathPart = uri;
    const size_t q = uri.find('?');
    if (q != std::string::npos) {
        // The first "?" decides, even after a "#": the fragment is looked for after it.
        pathPart = uri.substr(0, q);
        const std::string rest = uri.substr(q + 1);
        const size_t h = rest.find('#');
        parts.query = rest.substr(0, h);
        if (h != std::string::npos)
            parts.fragment = rest.substr(h + 1);
    } else {
        const size_t hash = uri.find('#');
        if (hash != std::string::npos) {
            pathPart = uri.substr(0, hash);
            parts.fragment = uri.substr(hash + 1);
        }
    }
    size_t start = 0;
    while (start < pathPart.size() && pathPart[start] == '/')
        ++start;
    parts.path = pathPart.substr(start);
    return parts;
}

}  // namespace ws_fuzz
