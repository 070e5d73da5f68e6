// CBSWork language and text encoding: the language cookie, its document path, the six fixed
// iconv conversions and SubStr.
#include <iconv.h>

#include <cerrno>
#include <cstring>
#include <cwchar>
#include <new>
#include <string>
#include <vector>

#include "session/CookieRule.h"
#include "web/BSWork.h"

namespace {

// One conversion of `inLen` input bytes into a zeroed buffer: `room` bytes are offered to
// iconv and four more zero bytes follow, so the result is terminated for narrow and wide
// readers alike. False for a failed allocation, an unknown pair or a failed conversion.
bool Convert(const char* to, const char* from, const char* in, size_t inLen, size_t room,
             std::vector<char>& buf) {
    try {
        buf.assign(room + 4, '\0');
    } catch (const std::bad_alloc&) {
        return false;
    }
    iconv_t cd = ::iconv_open(to, from);
    if (cd == reinterpret_cast<iconv_t>(-1)) {
        return false;
    }
    char* inPtr = const_cast<char*>(in);
    char* outPtr = buf.data();
    size_t inLeft = inLen;
    size_t outLeft = room;
    const size_t rc = ::iconv(cd, &inPtr, &inLeft, &outPtr, &outLeft);
    ::iconv_close(cd);
    return rc != static_cast<size_t>(-1);
}

// UTF-16 text as iconv writes it (a byte-order mark first, then 16-bit units) into wide text:
// units up to the first zero unit, surrogate pairs joined.
std::wstring Utf16ToWide(const std::vector<char>& buf) {
    const unsigned char* b = reinterpret_cast<const unsigned char*>(buf.data());
    const size_t units = buf.size() / 2;
    bool little = true;
    size_t i = 0;
    if (units > 0) {
        const unsigned first = b[0] | (b[1] << 8);
        if (first == 0xFEFF) {
            i = 1;
        } else if (first == 0xFFFE) {
            little = false;
            i = 1;
        }
    }
    auto unitAt = [&](size_t k) -> unsigned {
        return little ? (b[2 * k] | (b[2 * k + 1] << 8)) : ((b[2 * k] << 8) | b[2 * k + 1]);
    };
    std::wstring out;
    for (; i < units; ++i) {
        unsigned u = unitAt(i);
        if (u == 0) {
            break;
        }
        if (u >= 0xD800 && u <= 0xDBFF && i + 1 < units) {
            const unsigned lo = unitAt(i + 1);
            if (lo >= 0xDC00 && lo <= 0xDFFF) {
                u = 0x10000 + ((u - 0xD800) << 10) + (lo - 0xDC00);
                ++i;
            }
        }
        out.push_back(static_cast<wchar_t>(u));
    }
    return out;
}

}  // namespace

std::string CBSWork::GetLan(st_wh_info* info) {
    if (info == nullptr || info->head == nullptr) {
        return "";
    }
    // The library's one cookie rule, shared with the session and CSRF cookies.
    return GetCookieValueByRule(info->head->cookie, "qv_lan");
}

std::string CBSWork::GetLanDocPath(st_wh_info* info) {
    if (info == nullptr) {
        return "";
    }
    const char* doc = info->getDocPath ? info->getDocPath(info->connId) : nullptr;
    return std::string(doc ? doc : "") + "/" + GetLan(info);
}

bool CBSWork::UTF8ToANSI(const char* src, int length, std::string& out) {
    if (src == nullptr || length < 0) {
        return false;
    }
    // Twice the input is offered; the two extra zero bytes keep the result terminated.
    std::vector<char> buf;
    const size_t len = static_cast<size_t>(length);
    if (!Convert("gbk", "utf-8", src, len, 2 * len, buf)) {
        return false;
    }
    out = buf.data();
    return true;
}

// The two "Unicode" sources below are converted from "gbk", reading as many bytes of the wide
// text as it has characters. That pairing is odd and kept on purpose: callers rely on exactly
// this output.
bool CBSWork::UnicodeToANSI(const wchar_t* src, std::string& out) {
    if (src == nullptr) {
        return false;
    }
    const size_t n = std::wcslen(src);
    std::vector<char> buf;
    if (!Convert("utf-16", "gbk", reinterpret_cast<const char*>(src), n, 2 * n + 4, buf)) {
        return false;
    }
    out = buf.data();
    return true;
}

bool CBSWork::ANSIToUnicode(const char* src, std::wstring& out) {
    if (src == nullptr) {
        return false;
    }
    const size_t n = std::strlen(src);
    std::vector<char> buf;
    if (!Convert("utf-16", "gbk", src, n, 2 * n + 4, buf)) {
        return false;
    }
    out = Utf16ToWide(buf);
    return true;
}

bool CBSWork::UTF8ToUnicode(const char* src, std::wstring& out) {
    if (src == nullptr) {
        return false;
    }
    const size_t n = std::strlen(src);
    std::vector<char> buf;
    if (!Convert("utf-16", "utf-8", src, n, 2 * n + 4, buf)) {
        return false;
    }
    out = Utf16ToWide(buf);
    return true;
}

bool CBSWork::UnicodeToUTF8(const wchar_t* src, std::string& out) {
    if (src == nullptr) {
        return false;
    }
    const size_t n = std::wcslen(src);
    std::vector<char> buf;
    if (!Convert("utf-8", "gbk", reinterpret_cast<const char*>(src), n, 2 * n + 4, buf)) {
        return false;
    }
    out = buf.data();
    return true;
}

bool CBSWork::ANSIToUTF8(const char* src, std::string& out) {
    if (src == nullptr) {
        return false;
    }
    const size_t n = std::strlen(src);
    std::vector<char> buf;
    if (!Convert("utf-8", "gbk", src, n, 2 * n + 4, buf)) {
        return false;
    }
    out = buf.data();
    return true;
}

std::string CBSWork::SubStr(std::string, int, int) {
    return "";
}
