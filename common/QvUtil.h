// CQvUtil: the installation directory, configured ports, INI look-ups and identifier helpers.
#pragma once

#include <string>

#include "common/Export.h"

class WS_API CQvUtil {
public:
    CQvUtil() {}
    ~CQvUtil() {}

    // The installation directory: the resolved executable path up to and including the last
    // "/Server" when it contains "/Server/", otherwise the parent of the executable's directory.
    static std::string GetInstallPath();
    static std::string GetCurrentRunPath();
    static int GetDBPort();           // [main] ListenPort of middle/Conf/dbconfig.ini, 8123
    static int GetWebHarbourport();   // [main] ListenPort of webharbour/middle.ini, 8121
    static std::string GetINIKeyString(std::string section, std::string key, std::string& def,
                                       std::string path);
    static std::string GetINIKeyStringFromMiddle(std::string section, std::string key,
                                                 std::string def, std::string fileName);
    static std::string GetRegKeyValue(std::string path, std::string key);
    static bool WriteRegKeyValue(std::string path, std::string key, std::string value);
    static std::string GetGuid();
    static std::string& GetLegalName(std::string& name);
    static std::string ConverSecToShowLabel(int seconds);
    static int TruncateString(std::string& text, int n);
    static bool TruncateCCUId(std::string id, std::string& left, std::string& right);
    static std::string MakeCCUFullId(std::string left, std::string right);
    static std::string GetParentID(std::string id);
    static std::string FindEntityID(std::string id);
    static long FormatStringToTime(std::string text);
    static bool CreateDir(std::string path);
    static std::string GetFilenameExtension(std::string path);
    static std::string JsonString(std::string text);
    static bool IsUrlHttps(const std::string& url);
    static int QvSaveDataToShowStat(int state);
    static int QvSaveDataToSrcStat(int state);
};
