// Url: construction, parsing of whole URLs and of the part from the path on, percent-encoding
// and percent-decoding, and the parameter maps of a query string or a form-encoded body.
#include "web/Url.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include "common/Util.h"

namespace {

// Flag word per byte value: 7 for the characters that never need escaping, 4 for "+" and "/",
// 0 for everything else (a mask bit in common with the flags keeps the byte as it stands).
struct CharFlags {
    unsigned char flags[256];
    CharFlags() : flags() {
        for (int c = '0'; c <= '9'; ++c)
            flags[c] = 7;
        for (int c = 'A'; c <= 'Z'; ++c)
            flags[c] = 7;
        for (int c = 'a'; c <= 'z'; ++c)
            flags[c] = 7;
        for (unsigned char c : {'*', '-', '.', '=', '_'})
            flags[c] = 7;
        flags[static_cast<unsigned char>('+')] = 4;
        flags[static_cast<unsigned char>('/')] = 4;
    }
};

const CharFlags& Flags() {
    static const CharFlags table;
    return table;
}

const char kHex[] = "0123456789ABCDEF";

// Any character that is not a hexadecimal digit counts as 0.
int HexValue(unsigned char c) {
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    return 0;
}

// Percent-decodes the bytes [p, end) exactly as Url::DecodeUrl decodes the same text: "+" is a
// blank, "%XY" one byte (a non-hexadecimal digit counts as 0), a "%" that is last, or followed
// by only one character, ends the text, and so does a zero byte. Without `fromUtf8` the result
// ends at its first zero byte, as a C string would.
void DecodeRange(const char* p, const char* end, bool fromUtf8, std::string& out) {
    out.clear();
    while (p < end && *p != '\0') {
        if (*p == '+') {
            out += ' ';
            ++p;
        } else if (*p == '%') {
            if (p + 1 >= end || p[1] == '\0')
                break;
            const unsigned char last = p + 2 < end ? static_cast<unsigned char>(p[2]) : 0;
            out += static_cast<char>((HexValue(static_cast<unsigned char>(p[1])) << 4) |
                                     HexValue(last));
            if (last == 0)
                break;
            p += 3;
        } else {
            out += *p++;
        }
    }
    if (!fromUtf8) {
        const std::string::size_type zero = out.find('\0');
        if (zero != std::string::npos)
            out.resize(zero);
    }
}

// Splits `text` at "&" and stores each "key=value" piece, the last of repeated keys winning.
// Pieces are those of tarn::Util::ParseFlagString: empty ones between two "&" count, an empty
// last one does not. With `decodePieces`, key and value are decoded separately, so that an
// encoded "&" or "=" inside a value survives. Every request passes here, so the pieces are
// read in place, without copies of the text.
void FillMap(const std::string& text, std::map<std::string, std::string>& out, bool decodePieces,
             bool convert) {
    const char* start = text.data();
    const char* const end = start + text.size();
    std::string key, value;
    while (start < end) {
        const char* amp = static_cast<const char*>(std::memchr(start, '&', end - start));
        const char* stop = amp != nullptr ? amp : end;
        const char* eq = static_cast<const char*>(std::memchr(start, '=', stop - start));
        const char* keyEnd = eq != nullptr ? eq : stop;
        const char* valueStart = eq != nullptr ? eq + 1 : stop;
        if (decodePieces) {
            DecodeRange(start, keyEnd, convert, key);
            DecodeRange(valueStart, stop, convert, value);
        } else {
            key.assign(start, keyEnd);
            value.assign(valueStart, stop);
        }
        out[std::move(key)] = std::move(value);
        if (amp == nullptr)
            break;
        start = amp + 1;
    }
}

bool BuildMap(const std::string& text, std::map<std::string, std::string>& out, bool convert,
              bool decodePieces) {
    if (text.empty()) {
        return false;
    }
    if (decodePieces) {
        FillMap(text, out, true, convert);
    } else {
        // Decoding the whole text first lets an encoded "&" or "=" split the text.
        FillMap(Url::DecodeUrl(text, convert), out, false, convert);
    }
    return true;
}

}  // namespace

Url::Url() {}

Url::~Url() {}

void Url::InitData() {
    m_strUrl.clear();
    m_strScheme.clear();
    m_strHost.clear();
    m_strPort.clear();
    m_strPath.clear();
    m_strQuery.clear();
    m_strFragment.clear();
}

bool Url::MakeUrl() {
    return true;
}

std::string Url::GetUrlType() const {
    const std::string::size_type dot = m_strPath.rfind('.');
    if (dot == std::string::npos) {
        return "";
    }
    return m_strPath.substr(dot + 1);
}

bool Url::ParseUri(const std::string& uri) {
    std::string pathPart;
    m_strQuery.clear();
    m_strFragment.clear();
    const std::string::size_type q = uri.find('?');
    if (q != std::string::npos) {
        pathPart = uri.substr(0, q);
        const std::string rest = uri.substr(q + 1);
        const std::string::size_type hash = rest.find('#');
        if (hash == std::string::npos) {
            m_strQuery = rest;
        } else {
            m_strQuery = rest.substr(0, hash);
            m_strFragment = rest.substr(hash + 1);
        }
    } else {
        const std::string::size_type hash = uri.find('#');
        if (hash == std::string::npos) {
            pathPart = uri;
        } else {
            pathPart = uri.substr(0, hash);
            m_strFragment = uri.substr(hash + 1);
        }
    }
    const std::string::size_type start = pathPart.find_first_not_of('/');
    m_strPath = start == std::string::npos ? std::string() : pathPart.substr(start);
    return true;
}

bool Url::ParseUrl(const std::string& url, bool decode, bool fromUtf8) {
    InitData();
    m_strUrl = url;
    if (url.empty()) {
        return false;
    }
    // `decode` percent-decodes the part from the path on before it is split (the authority is
    // never decoded); `fromUtf8` makes that decoding convert from UTF-8.
    auto remainder = [decode, fromUtf8](const std::string& text) {
        return decode ? DecodeUrl(text, fromUtf8) : text;
    };
    const std::string::size_type drive = url.find(":\\");
    const std::string::size_type colon = url.find(":/");
    if (colon != std::string::npos && (drive == std::string::npos || colon < drive)) {
        m_strScheme = url.substr(0, colon);
        std::string::size_type pos = colon + 1;
        while (pos < url.size() && (url[pos] == '/' || url[pos] == '\\')) {
            ++pos;
        }
        const std::string::size_type slash = url.find('/', pos);
        const std::string authority =
            url.substr(pos, slash == std::string::npos ? std::string::npos : slash - pos);
        // "user:password@host:port": the host part follows the last "@"; a bracketed IPv6
        // address keeps its colons.
        const std::string::size_type at = authority.rfind('@');
        const std::string hostPort = at == std::string::npos ? authority : authority.substr(at + 1);
        std::string::size_type portColon = std::string::npos;
        if (!hostPort.empty() && hostPort[0] == '[') {
            const std::string::size_type close = hostPort.find(']');
            if (close != std::string::npos && close + 1 < hostPort.size() &&
                hostPort[close + 1] == ':') {
                portColon = close + 1;
            }
        } else {
            portColon = hostPort.rfind(':');
        }
        if (portColon == std::string::npos) {
            m_strHost = hostPort;
        } else {
            m_strHost = hostPort.substr(0, portColon);
            m_strPort = hostPort.substr(portColon + 1);
        }
        return ParseUri(slash == std::string::npos ? std::string() : remainder(url.substr(slash)));
    }
    // A drive path ("C:\dir\file") or a text without a scheme (the request target alone): the
    // whole text is the part from the path on.
    return ParseUri(remainder(url));
}

int Url::EncodeUrl(const char* src, char* out, int& size, int mask) {
    if (src == nullptr) {
        return 0;
    }
    const CharFlags& table = Flags();
    const size_t count = std::strlen(src);
    size_t needed = count + 1;
    for (size_t i = 0; i < count; ++i) {
        // A blank counts as escaped here even in form mode, so the figure may exceed what is
        // written.
        if ((table.flags[static_cast<unsigned char>(src[i])] & mask) == 0) {
            needed += 2;
        }
    }
    if (needed > 0x7fffffff) {
        return 0;
    }
    const int need = static_cast<int>(needed);
    if (out == nullptr) {
        size = need;
        return need;
    }
    if (size <= need - 1) {
        size = need;
        return 0;
    }
    char* w = out;
    for (size_t i = 0; i < count; ++i) {
        const unsigned char c = static_cast<unsigned char>(src[i]);
        const bool keep = mask == 2 ? (table.flags[c] & 2) != 0 : (table.flags[c] & mask) != 0;
        if (keep) {
            *w++ = static_cast<char>(c);
        } else if (mask == 2 && c == ' ') {
            *w++ = '+';
        } else {
            *w++ = '%';
            *w++ = kHex[c >> 4];
            *w++ = kHex[c & 15];
        }
    }
    *w = '\0';
    size = static_cast<int>(w - out);
    return size;
}

std::string Url::EncodeUrl(const std::string& src, int mask, bool toUtf8) {
    std::string text = src;
    if (toUtf8) {
        // The text is already UTF-8 throughout; the conversion step is kept so that a build
        // with another local encoding converts here.
        const int want = static_cast<int>(std::strlen(src.c_str()));
        if (want == 0) {
            return "";
        }
        std::vector<char> buf(static_cast<size_t>(want) + 1, '\0');
        int len = want;
        if (!tarn::Util::StringTOUtf8(std::string(src.c_str()), buf.data(), len) || len <= 0) {
            return "";
        }
        buf[static_cast<size_t>(std::min(len, want))] = '\0';
        text = buf.data();
    }
    int size = 0;
    if (EncodeUrl(text.c_str(), nullptr, size, mask) <= 0) {
        return "";
    }
    std::vector<char> out(static_cast<size_t>(size), '\0');
    if (EncodeUrl(text.c_str(), out.data(), size, mask) <= 0) {
        return "";
    }
    return std::string(out.data(), static_cast<size_t>(size));
}

int Url::DecodeUrl(const char* src, char* out, int& length) {
    if (out == nullptr || src == nullptr) {
        return 0;
    }
    char* w = out;
    const unsigned char* p = reinterpret_cast<const unsigned char*>(src);
    while (*p != '\0') {
        if (*p == '+') {
            *w++ = ' ';
            ++p;
        } else if (*p == '%') {
            if (p[1] == '\0') {
                break;  // a lone "%" at the end ends the text
            }
            const int high = HexValue(p[1]);
            // A "%" with one character left: the missing second digit counts as 0, and the
            // text ends there (nothing past the terminator is read).
            const int low = HexValue(p[2]);
            *w++ = static_cast<char>((high << 4) | low);
            if (p[2] == '\0') {
                break;
            }
            p += 3;
        } else {
            *w++ = static_cast<char>(*p++);
        }
    }
    *w = '\0';
    length = static_cast<int>(w - out);
    return length;
}

std::string Url::DecodeUrl(const std::string& src, bool fromUtf8) {
    std::vector<char> buf(src.size() + 1, '\0');
    int length = 0;
    if (DecodeUrl(src.c_str(), buf.data(), length) <= 0) {
        return "";
    }
    if (fromUtf8) {
        std::string out;
        if (!tarn::Util::Utf8TOString(buf.data(), length, out)) {
            return "";
        }
        return out;
    }
    return std::string(buf.data());
}

bool Url::GetQueryStringMap(std::map<std::string, std::string>& out) {
    if (m_strQuery.empty()) {
        return false;
    }
    FillMap(m_strQuery, out, false, false);
    return true;
}

bool Url::GetQueryStringMapEx(std::map<std::string, std::string>& out, bool convert,
                              bool decodePieces) {
    return BuildMap(m_strQuery, out, convert, decodePieces);
}

bool Url::CovertPostStringToMap(const std::string& body, std::map<std::string, std::string>& out) {
    if (body.empty()) {
        return false;
    }
    FillMap(body, out, false, false);
    return true;
}

bool Url::CovertPostStringToMapEx(const std::string& body, std::map<std::string, std::string>& out,
                                  bool convert, bool decodePieces) {
    return BuildMap(body, out, convert, decodePieces);
}
