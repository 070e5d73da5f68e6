// _qvcomm::CDebugLog and _qvcomm::CLogFileRel: dated log files per log name.
#include "common/DebugLog.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "common/Clock.h"
#include "common/IniFile.h"
#include "common/QvUtil.h"

namespace _qvcomm {

int _vscprintf(const char* format, va_list args) {
    if (format == nullptr)
        return -1;
    va_list copy;
    va_copy(copy, args);
    int n = std::vsnprintf(nullptr, 0, format, copy);
    va_end(copy);
    return n;
}

namespace {

// The current local time (from the library's clock, so that tests can pin the date).
tm LocalNow() {
    time_t now = tarn::ClockNow();
    tm t;
    std::memset(&t, 0, sizeof(t));
    ::localtime_r(&now, &t);
    return t;
}

const int kMaxFormatted = 4095;  // characters plus the terminating zero

}  // namespace

CLogFileRel::CLogFileRel(std::string dir, std::string name)
    : m_strDir(std::move(dir)), m_strName(std::move(name)) {}

std::string CLogFileRel::GetTimeFilePathName() {
    std::string base = m_strName;
    std::string ext;
    std::string::size_type dot = m_strName.rfind('.');
    if (dot != std::string::npos) {
        base = m_strName.substr(0, dot);
        ext = m_strName.substr(dot + 1);
    }
    tm t = LocalNow();
    char date[32] = {0};
    std::strftime(date, sizeof(date), "%Y%m%d", &t);
    std::string path = m_strDir + base + date;
    if (!ext.empty())
        path += "." + ext;
    return path;
}

void CLogFileRel::Write(const char* text) {
    std::lock_guard<std::recursive_mutex> lock(m_mutexWrite);
    std::string path = GetTimeFilePathName();
    FILE* file = std::fopen(path.c_str(), "a");
    if (file == nullptr) {
        std::printf("%s open failed\n", path.c_str());
        return;
    }
    tm t = LocalNow();
    char stamp[64] = {0};
    std::strftime(stamp, sizeof(stamp), "%Y-%m-%d %H:%M:%S", &t);
    std::fprintf(file, "%s %s\n", stamp, text != nullptr ? text : "");
    std::fclose(file);
}

CDebugLog* CDebugLog::m_ptr_instance = nullptr;

CDebugLog::CDebugLog() {}

CDebugLog* CDebugLog::get_instance() {
    // The creation is guarded, so a first call from several threads at once is safe.
    static std::once_flag once;
    std::call_once(once, [] {
        CDebugLog* log = new CDebugLog();  // never destroyed
        log->InitSetting();
        m_ptr_instance = log;
    });
    return m_ptr_instance;
}

int CDebugLog::InitSetting() {
    std::string install = CQvUtil::GetInstallPath();
    char path[4096] = {0};
    std::snprintf(path, sizeof(path), "%s/middle/Conf/middle.ini", install.c_str());
    std::string level;
    {
        tarn::CIniFile ini;
        ini.Init(path);
        level = ini.GetIniSetting("main", "loglevel", "");
    }
    m_nLevel = level.empty() ? 0 : static_cast<int>(std::strtol(level.c_str(), nullptr, 10));
    char dir[4096] = {0};
    std::snprintf(dir, sizeof(dir), "%s/middle/log/", install.c_str());
    m_szFileDir = dir;
    return std::printf("m_szFileDir:%s LogLvel:%d\r\n", m_szFileDir.c_str(), m_nLevel);
}

CLogFileRel* CDebugLog::GetFileRel(std::string name) {
    std::string dir;
    std::string file;
    std::string::size_type slash = name.rfind('/');
    if (slash == std::string::npos) {
        dir = m_szFileDir;
        file = name;
    } else {
        dir = name.substr(0, slash + 1);
        file = name.substr(slash + 1);
    }
    std::lock_guard<std::recursive_mutex> lock(m_mutexMap);
    // Keyed by the file name alone: names that differ only in their directory share the first
    // one's object and directory (on purpose: existing callers rely on it).
    auto it = m_mapFiles.find(file);
    if (it != m_mapFiles.end())
        return it->second;
    CLogFileRel* rel = new CLogFileRel(dir, file);
    m_mapFiles.emplace(file, rel);
    return rel;
}

void CDebugLog::WriteTimeLog(std::string name, int level, const char* text) {
    CDebugLog* log = get_instance();
    if (level > log->m_nLevel)
        return;
    log->GetFileRel(name)->Write(text);
}

void CDebugLog::WriteTimeFmtLog(std::string name, int level, const char* format, ...) {
    va_list args;
    va_start(args, format);
    int n = _vscprintf(format, args) + 1;
    if (n > kMaxFormatted || n <= 1) {  // over-long: dropped without notice; empty: nothing
        va_end(args);
        return;
    }
    char buf[kMaxFormatted + 1];
    std::memset(buf, 0, sizeof(buf));
    std::vsnprintf(buf, static_cast<size_t>(n), format, args);
    va_end(args);
    WriteTimeLog(name, level, buf);
}

}  // namespace _qvcomm
