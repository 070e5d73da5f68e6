// _qvcomm::CStrWork: byte-string helpers (cutting, trimming, replacing, case, lists, zero buffers).
#pragma once

#include <list>
#include <map>
#include <string>
#include <vector>

#include "common/Export.h"

namespace _qvcomm {

class WS_API CStrWork {
public:
    CStrWork() {}
    ~CStrWork() {}

    static std::string Left(const std::string& s, int n);
    static std::string Right(const std::string& s, int n);
    static std::string Mid(const std::string& s, int pos, int n);
    static std::string GetMid(const std::string& s, const std::string& begin,
                              const std::string& end);
    // Replaces every `from`; text produced by a replacement is not searched again. An empty
    // `from` leaves the text unchanged.
    static std::string ReplaceAll(const std::string& s, const std::string& from,
                                  const std::string& to);
    static std::string ReplaceJson(const std::string& s);
    static std::string StrToLower(const std::string& s);
    static int CompareNoCase(const std::string& a, const std::string& b);

    static std::string Trim(const std::string& s, const std::string& set);
    static std::string TrimLeft(const std::string& s, const std::string& set);
    static std::string TrimRight(const std::string& s, const std::string& set);
    static std::string Trim(const std::string& s);  // the set " " only
    static std::string TrimLeft(const std::string& s);
    static std::string TrimRight(const std::string& s);

    static int FormatString(std::string& out, const char* format, ...)
        __attribute__((format(printf, 2, 3)));

    static void MakeListByTok(const std::string& s, std::list<std::string>& list, char sep);
    static void MakeIntListByTok(const std::string& s, std::list<int>& list, char sep);
    static void MakeStringByList(std::string& out, const std::list<std::string>& list, char sep);
    static void MakeStringByIntList(std::string& out, const std::list<int>& list, char sep);
    static void MakeListByReturn(const char* text, std::list<std::string>& list);
    // Returns a new[]-allocated zero buffer of the list (each item and its zero byte, then one
    // more zero byte); `size` receives its length. The caller delete[]s it.
    static char* MakeReturnStringByList(const std::list<std::string>& list, int& size);
    static int CalListSize(const std::list<std::string>& list);
    static void AddList(std::list<std::string>& to, const std::list<std::string>& from);
    // Returns a new[]-allocated zero buffer of "key=value" entries; the caller delete[]s it.
    static char* MakeZeroCharByMap(const std::map<std::string, std::string>& map, int& size);
    static void MakeMapByZero(const char* buffer, int size,
                              std::map<std::string, std::string>& map);
    static std::string GeValFromMap(const std::map<std::string, std::string>& map,
                                    const std::string& key, const std::string& def = "");
    static void SortString(std::vector<std::string>& items, bool ascending = true);
    static bool CCompareString(const std::string& a, const std::string& b);
    static int mibcompare(const std::string& a, const std::string& b);
};

}  // namespace _qvcomm
