// _qvcomm::CStrWork: byte-string helpers.
#include "common/StrWork.h"

#include <strings.h>

#include <algorithm>
#include <cctype>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

namespace _qvcomm {

std::string CStrWork::Left(const std::string& s, int n) {
    if (n <= 0)
        return "";
    return s.substr(0, static_cast<std::string::size_type>(n));
}

std::string CStrWork::Right(const std::string& s, int n) {
    // From position length - n: an n larger than the length throws std::out_of_range.
    return s.substr(s.size() - static_cast<std::string::size_type>(n));
}

std::string CStrWork::Mid(const std::string& s, int pos, int n) {
    return s.substr(static_cast<std::string::size_type>(pos),
                    n < 0 ? std::string::npos : static_cast<std::string::size_type>(n));
}

std::string CStrWork::GetMid(const std::string& s, const std::string& begin,
                             const std::string& end) {
    std::string::size_type b = s.find(begin);
    if (b == std::string::npos)
        return "";
    b += begin.size();
    std::string::size_type e = s.find(end, b);
    if (e == std::string::npos)
        return "";
    return s.substr(b, e - b);
}

std::string CStrWork::ReplaceAll(const std::string& s, const std::string& from,
                                 const std::string& to) {
    std::string out = s;
    if (from.empty())
        return out;
    std::string::size_type pos = 0;
    while ((pos = out.find(from, pos)) != std::string::npos) {
        out.replace(pos, from.size(), to);
        pos += to.size();  // text produced by a replacement is not searched again
    }
    return out;
}

std::string CStrWork::ReplaceJson(const std::string& s) {
    std::string out;
    out.reserve(s.size());
    for (char c : s) {
        if (c != '\n')
            out += c;
    }
    return out;
}

std::string CStrWork::StrToLower(const std::string& s) {
    std::string out = s;
    for (char& c : out)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return out;
}

int CStrWork::CompareNoCase(const std::string& a, const std::string& b) {
    return ::strcasecmp(a.c_str(), b.c_str());
}

std::string CStrWork::Trim(const std::string& s, const std::string& set) {
    std::string::size_type last = s.find_last_not_of(set);
    if (last == std::string::npos)
        return "";
    std::string out = s.substr(0, last + 1);
    return out.substr(out.find_first_not_of(set));
}

std::string CStrWork::TrimLeft(const std::string& s, const std::string& set) {
    std::string::size_type first = s.find_first_not_of(set);
    if (first == std::string::npos)
        return "";
    return s.substr(first);
}

std::string CStrWork::TrimRight(const std::string& s, const std::string& set) {
    std::string::size_type last = s.find_last_not_of(set);
    if (last == std::string::npos)
        return "";
    return s.substr(0, last + 1);
}

std::string CStrWork::Trim(const std::string& s) {
    return Trim(s, " ");
}
std::string CStrWork::TrimLeft(const std::string& s) {
    return TrimLeft(s, " ");
}
std::string CStrWork::TrimRight(const std::string& s) {
    return TrimRight(s, " ");
}

int CStrWork::FormatString(std::string& out, const char* format, ...) {
    if (format == nullptr)
        return 0;
    va_list args;
    va_start(args, format);
    va_list copy;
    va_copy(copy, args);
    int len = std::vsnprintf(nullptr, 0, format, copy);
    va_end(copy);
    if (len <= 0) {
        va_end(args);
        return 0;
    }
    char* buf = new (std::nothrow) char[static_cast<size_t>(len) + 1];
    if (buf == nullptr) {
        va_end(args);
        return 0;
    }
    std::vsnprintf(buf, static_cast<size_t>(len) + 1, format, args);
    va_end(args);
    out.assign(buf, static_cast<size_t>(len));
    delete[] buf;
    return 1;
}

void CStrWork::MakeListByTok(const std::string& s, std::list<std::string>& list, char sep) {
    std::string piece;
    for (char c : s) {
        if (c == sep) {
            if (!piece.empty())
                list.push_back(piece);
            piece.clear();
        } else {
            piece += c;
        }
    }
    if (!piece.empty())
        list.push_back(piece);
}

void CStrWork::MakeIntListByTok(const std::string& s, std::list<int>& list, char sep) {
    std::list<std::string> pieces;
    MakeListByTok(s, pieces, sep);
    for (const std::string& p : pieces)
        list.push_back(std::atoi(p.c_str()));
}

void CStrWork::MakeStringByList(std::string& out, const std::list<std::string>& list, char sep) {
    bool first = true;
    for (const std::string& item : list) {
        if (!first)
            out += sep;
        out += item;
        first = false;
    }
}

void CStrWork::MakeStringByIntList(std::string& out, const std::list<int>& list, char sep) {
    bool first = true;
    for (int item : list) {
        if (!first)
            out += sep;
        out += std::to_string(item);
        first = false;
    }
}

void CStrWork::MakeListByReturn(const char* text, std::list<std::string>& list) {
    if (text == nullptr)
        return;
    const char* p = text;
    while (*p != '\0') {
        size_t len = std::strlen(p);
        list.emplace_back(p, len);
        p += len + 1;
    }
}

char* CStrWork::MakeReturnStringByList(const std::list<std::string>& list, int& size) {
    size = CalListSize(list);
    char* buf = new char[static_cast<size_t>(size)];
    std::memset(buf, 0, static_cast<size_t>(size));
    char* p = buf;
    for (const std::string& item : list) {
        std::memcpy(p, item.data(), item.size());
        p += item.size() + 1;
    }
    return buf;
}

int CStrWork::CalListSize(const std::list<std::string>& list) {
    size_t size = 1;  // the closing zero byte
    for (const std::string& item : list)
        size += item.size() + 1;
    return static_cast<int>(size);
}

void CStrWork::AddList(std::list<std::string>& to, const std::list<std::string>& from) {
    to.insert(to.end(), from.begin(), from.end());
}

char* CStrWork::MakeZeroCharByMap(const std::map<std::string, std::string>& map, int& size) {
    size_t total = 3;
    for (const auto& kv : map)
        total += kv.first.size() + kv.second.size() + 2;
    char* buf = new char[total];
    std::memset(buf, 0, total);
    char* p = buf;
    for (const auto& kv : map) {
        std::memcpy(p, kv.first.data(), kv.first.size());
        p += kv.first.size();
        *p++ = '=';
        std::memcpy(p, kv.second.data(), kv.second.size());
        p += kv.second.size() + 1;  // and its zero byte
    }
    size = static_cast<int>(total);
    return buf;
}

void CStrWork::MakeMapByZero(const char* buffer, int size,
                             std::map<std::string, std::string>& map) {
    if (buffer == nullptr || size <= 0)
        return;
    const char* p = buffer;
    const char* end = buffer + size;
    while (p < end && *p != '\0') {
        size_t len = strnlen(p, static_cast<size_t>(end - p));
        std::string entry(p, len);
        std::string::size_type eq = entry.find('=');
        if (eq == std::string::npos) {
            map[entry] = "";
        } else {
            map[entry.substr(0, eq)] = entry.substr(eq + 1);
        }
        p += len + 1;
    }
}

std::string CStrWork::GeValFromMap(const std::map<std::string, std::string>& map,
                                   const std::string& key, const std::string& def) {
    auto it = map.find(key);
    return it == map.end() ? def : it->second;
}

void CStrWork::SortString(std::vector<std::string>& items, bool ascending) {
    if (ascending) {
        std::stable_sort(items.begin(), items.end(), CCompareString);
    } else {
        std::stable_sort(
            items.begin(), items.end(),
            [](const std::string& a, const std::string& b) { return CCompareString(b, a); });
    }
}

bool CStrWork::CCompareString(const std::string& a, const std::string& b) {
    return mibcompare(a, b) < 0;
}

namespace {

struct Run {
    bool digits;
    std::string text;
};

std::list<Run> SplitRuns(const std::string& s) {
    std::list<Run> runs;
    for (char c : s) {
        bool digit = std::isdigit(static_cast<unsigned char>(c)) != 0;
        if (runs.empty() || runs.back().digits != digit)
            runs.push_back(Run{digit, ""});
        runs.back().text += c;
    }
    return runs;
}

// Compares two runs of decimal digits as numbers of any length.
int CompareNumbers(const std::string& a, const std::string& b) {
    std::string::size_type za = a.find_first_not_of('0');
    std::string::size_type zb = b.find_first_not_of('0');
    std::string na = za == std::string::npos ? "" : a.substr(za);
    std::string nb = zb == std::string::npos ? "" : b.substr(zb);
    if (na.size() != nb.size())
        return na.size() < nb.size() ? -1 : 1;
    int c = na.compare(nb);
    return c < 0 ? -1 : (c > 0 ? 1 : 0);
}

}  // namespace

int CStrWork::mibcompare(const std::string& a, const std::string& b) {
    // Runs of digits compare as numbers ("1.2.10" after "1.2.9"), other runs byte-wise; with
    // all runs equal the shorter list comes first, and last a plain byte-wise comparison breaks
    // ties such as "01" against "1".
    std::list<Run> ra = SplitRuns(a);
    std::list<Run> rb = SplitRuns(b);
    auto ia = ra.begin();
    auto ib = rb.begin();
    for (; ia != ra.end() && ib != rb.end(); ++ia, ++ib) {
        int c;
        if (ia->digits && ib->digits) {
            c = CompareNumbers(ia->text, ib->text);
        } else {
            int r = ia->text.compare(ib->text);
            c = r < 0 ? -1 : (r > 0 ? 1 : 0);
        }
        if (c != 0)
            return c;
    }
    if (ia != ra.end())
        return 1;
    if (ib != rb.end())
        return -1;
    int r = a.compare(b);
    return r < 0 ? -1 : (r > 0 ? 1 : 0);
}

}  // namespace _qvcomm
