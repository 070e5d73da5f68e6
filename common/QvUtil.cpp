// CQvUtil: installation directory, configured ports, INI look-ups and identifier helpers.
#include "common/QvUtil.h"

#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>
#include <uuid/uuid.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "common/IniFile.h"
#include "common/TimeFace.h"
#include "common/internal/ExePath.h"

namespace {

const std::string::size_type kMaxValue = 2046;

std::string Cut(std::string value) {
    if (value.size() > kMaxValue)
        value.resize(kMaxValue);
    return value;
}

int ReadPort(const std::string& path, const char* def) {
    tarn::CIniFile ini;
    ini.Init(path);
    std::string value = Cut(ini.GetIniSetting("main", "ListenPort", def));
    return static_cast<int>(std::strtol(value.c_str(), nullptr, 10));
}

bool Exists(const std::string& path) {
    return ::access(path.c_str(), F_OK) == 0;
}

}  // namespace

namespace ws_internal {

std::string ResolvedExePath() {
    char link[4096];
    ssize_t n = ::readlink("/proc/self/exe", link, sizeof(link));
    if (n < 1 || n > 4095)
        return "";
    link[n] = '\0';
    char resolved[PATH_MAX];
    if (::realpath(link, resolved) == nullptr)
        return "";
    return resolved;
}

}  // namespace ws_internal

std::string CQvUtil::GetInstallPath() {
    std::string path = ws_internal::ResolvedExePath();
    if (path.empty())
        return "";
    if (path.find("/Server/") != std::string::npos) {
        return path.substr(0, path.rfind("/Server") + std::strlen("/Server"));
    }
    // The parent of the executable's directory: drop the last two components.
    for (int i = 0; i < 2; ++i) {
        std::string::size_type slash = path.rfind('/');
        if (slash == std::string::npos)
            return "";
        path.erase(slash);
    }
    return path;
}

std::string CQvUtil::GetCurrentRunPath() {
    std::string path = ws_internal::ResolvedExePath();
    std::string::size_type slash = path.rfind('/');
    if (slash == std::string::npos)
        return "";
    return path.substr(0, slash);
}

int CQvUtil::GetDBPort() {
    return ReadPort(GetInstallPath() + "/middle/Conf/dbconfig.ini", "8123");
}

int CQvUtil::GetWebHarbourport() {
    return ReadPort(GetInstallPath() + "/webharbour/middle.ini", "8121");
}

std::string CQvUtil::GetINIKeyString(std::string section, std::string key, std::string& def,
                                     std::string path) {
    tarn::CIniFile ini;
    ini.Init(path);
    return Cut(ini.GetIniSetting(section.c_str(), key.c_str(), def.c_str()));
}

std::string CQvUtil::GetINIKeyStringFromMiddle(std::string section, std::string key,
                                               std::string def, std::string fileName) {
    return GetINIKeyString(section, key, def, GetInstallPath() + "/middle/Conf/" + fileName);
}

std::string CQvUtil::GetRegKeyValue(std::string, std::string) {
    return "";
}

bool CQvUtil::WriteRegKeyValue(std::string, std::string, std::string) {
    return true;
}

std::string CQvUtil::GetGuid() {
    uuid_t id;
    ::uuid_generate(id);
    char text[37] = {0};
    ::uuid_unparse(id, text);
    return text;
}

std::string& CQvUtil::GetLegalName(std::string& name) {
    static const char kIllegal[] = "<>?:/\\*|\".~=";
    for (char& c : name) {
        if (c != '\0' && std::strchr(kIllegal, c) != nullptr)
            c = '_';
    }
    return name;
}

std::string CQvUtil::ConverSecToShowLabel(int seconds) {
    int hours = seconds / 3600;
    int rest = seconds % 3600;
    int minutes = 0;
    int secs = 0;
    if (rest >= 1) {
        minutes = rest / 60;
        secs = rest % 60;
    }
    std::string label;
    char buf[64];
    if (hours > 0) {
        std::snprintf(buf, sizeof(buf), "%d小时", hours);
        label += buf;
    }
    if (minutes != 0) {
        std::snprintf(buf, sizeof(buf), "%d分钟", minutes);
        label += buf;
    }
    if (secs != 0) {
        std::snprintf(buf, sizeof(buf), "%d秒", secs);
        label += buf;
    }
    return label;
}

int CQvUtil::TruncateString(std::string& text, int n) {
    if (n >= 0 && static_cast<std::string::size_type>(n) >= text.size())
        return n;
    std::string::size_type pos = 0;
    int count = 0;
    while (count < n && pos < text.size()) {
        if (static_cast<unsigned char>(text[pos]) < 0x80) {
            pos += 1;
        } else {
            // the lead byte of a two-byte character takes the next byte with it
            pos = pos + 2 <= text.size() ? pos + 2 : text.size();
        }
        ++count;
    }
    text.erase(pos);
    return static_cast<int>(pos);
}

bool CQvUtil::TruncateCCUId(std::string id, std::string& left, std::string& right) {
    std::string::size_type dot = id.find('.');
    if (dot == std::string::npos)
        return false;
    left = id.substr(0, dot);
    right = id.substr(dot + 1);
    return true;
}

std::string CQvUtil::MakeCCUFullId(std::string left, std::string right) {
    if (left.empty())
        return right;
    return left + "." + right;
}

std::string CQvUtil::GetParentID(std::string id) {
    std::string::size_type dot = id.rfind('.');
    if (id.empty() || dot == std::string::npos)
        return id;
    return id.substr(0, dot);
}

std::string CQvUtil::FindEntityID(std::string id) {
    std::string::size_type pos = id.find("SubMonitor");
    if (pos == std::string::npos)
        return "";
    if (pos == 0)
        return id;
    return id.substr(0, pos - 1);
}

long CQvUtil::FormatStringToTime(std::string text) {
    int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0;
    std::sscanf(text.c_str(), "%d-%d-%d %d:%d:%d", &year, &month, &day, &hour, &minute, &second);
    return static_cast<long>(tarn::TimeFace(year, month, day, hour, minute, second).GetTime());
}

bool CQvUtil::CreateDir(std::string path) {
    if (Exists(path))
        return true;
    if (path.find_first_of("\\/") == std::string::npos)
        return true;
    for (std::string::size_type i = 1; i < path.size(); ++i) {
        if (path[i] != '/' && path[i] != '\\')
            continue;
        std::string prefix = path.substr(0, i);
        if (!Exists(prefix) && ::mkdir(prefix.c_str(), 070) != 0)
            return false;
    }
    if (Exists(path))
        return true;
    return ::mkdir(path.c_str(), 070) == 0;  // mode 070 as required
}

std::string CQvUtil::GetFilenameExtension(std::string path) {
    std::string::size_type slash = path.find_last_of("\\/");
    std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
    std::string::size_type dot = name.find('.');
    if (dot == std::string::npos)
        return "";
    return name.substr(dot + 1);
}

std::string CQvUtil::JsonString(std::string text) {
    std::string out;
    out.reserve(text.size());
    for (char c : text) {
        if (c == '\\') {
            out += "\\\\";
        } else {
            out += c;
        }
    }
    std::string result;
    result.reserve(out.size());
    for (char c : out) {
        if (c == '"') {
            result += "\\\"";
        } else {
            result += c;
        }
    }
    return result;
}

bool CQvUtil::IsUrlHttps(const std::string& url) {
    return url.compare(0, 8, "https://") == 0;
}

int CQvUtil::QvSaveDataToShowStat(int state) {
    return state == 4 ? 3 : state;
}

int CQvUtil::QvSaveDataToSrcStat(int state) {
    return state;
}
