// tarn::Util and GetQVInstallPath.
#include "common/Util.h"

#include <strings.h>

#include <cctype>
#include <cstring>

#include "common/TimeFace.h"
#include "common/internal/ExePath.h"

namespace tarn {

bool Util::ParseFlagString(std::string text, std::string sep, std::list<std::string>& out) {
    if (text.empty())
        return false;
    if (sep.empty() || text.find(sep) == std::string::npos) {
        out.push_back(text);
        return true;
    }
    std::string::size_type start = 0;
    for (;;) {
        std::string::size_type pos = text.find(sep, start);
        if (pos == std::string::npos)
            break;
        out.push_back(text.substr(start, pos - start));  // empty pieces included
        start = pos + sep.size();
    }
    if (start < text.size())
        out.push_back(text.substr(start));  // the last only if non-empty
    return true;
}

std::string Util::ReplaceString(std::string text, std::string from, std::string to) {
    return ReplaceStr(text, from, to);
}

uint32_t Util::CheckSum(const char* data, int len) {
    uint32_t sum = 0;
    if (data != nullptr && len > 0) {
        int words = len / 4;
        for (int i = 0; i < words; ++i) {
            uint32_t w;
            std::memcpy(&w, data + 4 * i, 4);  // machine byte order
            sum += w;
        }
        int rest = len % 4;
        if (rest != 0) {
            // Only the first trailing byte counts, multiplied by the number of trailing bytes
            // (kept for compatibility with stored checksums).
            sum += static_cast<uint32_t>(static_cast<unsigned char>(data[4 * words])) *
                   static_cast<uint32_t>(rest);
        }
    }
    return ~sum;
}

int Util::str_nocase_cmp(const char* a, const char* b) {
    return ::strcasecmp(a, b);
}

int Util::str_nocase_find(const char* text, const char* part) {
    if (text == nullptr || part == nullptr)
        return -1;
    std::string t = ToLowerString(text);
    std::string p = ToLowerString(part);
    std::string::size_type pos = t.find(p);
    return pos == std::string::npos ? -1 : static_cast<int>(pos);
}

std::string Util::ToLowerString(const char* text) {
    if (text == nullptr)
        return "";
    std::string out(text);
    for (char& c : out)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return out;
}

std::string Util::ToUpperString(const char* text) {
    if (text == nullptr)
        return "";
    std::string out(text);
    for (char& c : out)
        c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return out;
}

bool Util::Utf8TOString(const char* text, int len, std::string& out) {
    if (text == nullptr || len <= 0) {
        out.clear();
    } else {
        out.assign(text, static_cast<size_t>(len));
    }
    return true;
}

bool Util::StringTOUtf8(std::string text, char* out, int& len) {
    std::memcpy(out, text.c_str(), text.size() + 1);
    len = static_cast<int>(text.size());
    return true;
}

std::string Util::GetBrenvaleInstallPath() {
    return GetQVInstallPath("Server");
}

}  // namespace tarn

std::string GetQVInstallPath(const char* dirName) {
    if (dirName == nullptr)
        return "";
    std::string path = ws_internal::ResolvedExePath();
    if (path.empty())
        return "";
    for (;;) {
        std::string::size_type slash = path.rfind('/');
        if (slash == std::string::npos)
            return "";
        if (path.compare(slash + 1, std::string::npos, dirName) == 0)
            return path;
        path.erase(slash);
    }
}
