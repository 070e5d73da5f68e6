// _qvcomm::CDebugLog and _qvcomm::CLogFileRel: dated log files per log name, with a level filter.
#pragma once

#include <cstdarg>
#include <map>
#include <mutex>
#include <string>

#include "common/Export.h"

namespace _qvcomm {

// The number of characters `format` would produce, without the terminating zero.
WS_API int _vscprintf(const char* format, va_list args);

// One log file name: appends one time-stamped line per call to the file of the current day
// ("<dir><base><YYYYMMDD>.<ext>"), opening and closing the file for every line. The date and the
// time stamp are local time of tarn::ClockNow(), so a test clock pins them.
class WS_API CLogFileRel {
public:
    CLogFileRel(std::string dir, std::string name);
    std::string GetTimeFilePathName();
    void Write(const char* text);

private:
    std::string m_strDir;                 // ends in "/"
    std::recursive_mutex m_mutexWrite;    // guards the writes to this log
    std::string m_strName;                // base file name, e.g. "session.log"
};

// The process-wide logger: reads "loglevel" of [main] in middle/Conf/middle.ini once, writes
// under middle/log/, and keeps one CLogFileRel per file name (the part after the last "/").
class WS_API CDebugLog {
public:
    static CDebugLog* get_instance();
    int InitSetting();
    CLogFileRel* GetFileRel(std::string name);
    static void WriteTimeLog(std::string name, int level, const char* text);
    static void WriteTimeFmtLog(std::string name, int level, const char* format, ...)
        __attribute__((format(printf, 3, 4)));

    int GetLevel() const { return m_nLevel; }
    const std::string& GetFileDir() const { return m_szFileDir; }

private:
    CDebugLog();
    static CDebugLog* m_ptr_instance;

    std::map<std::string, CLogFileRel*> m_mapFiles;  // guarded by m_mutexMap; never shrinks
    std::recursive_mutex m_mutexMap;
    std::string m_szFileDir;  // "<install>/middle/log/"
    int m_nLevel = 0;
};

}  // namespace _qvcomm
