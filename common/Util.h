// tarn::Util (string splitting, checksums, case helpers) and GetQVInstallPath.
#pragma once

#include <cstdint>
#include <list>
#include <string>

#include "common/Export.h"

namespace tarn {

class WS_API Util {
public:
    Util() {}
    ~Util() {}

    static bool ParseFlagString(std::string text, std::string sep, std::list<std::string>& out);
    static std::string ReplaceString(std::string text, std::string from, std::string to);
    static uint32_t CheckSum(const char* data, int len);
    static int str_nocase_cmp(const char* a, const char* b);
    static int str_nocase_find(const char* text, const char* part);
    static std::string ToLowerString(const char* text);
    static std::string ToUpperString(const char* text);
    static bool Utf8TOString(const char* text, int len, std::string& out);
    static bool StringTOUtf8(std::string text, char* out, int& len);
    static std::string GetBrenvaleInstallPath();
};

}  // namespace tarn

// The nearest directory at or above the running executable whose own name is `dirName`, or "".
WS_API std::string GetQVInstallPath(const char* dirName);
