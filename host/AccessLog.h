// AccessLog: one line per request in <install>/middle/log/webharbour_access<YYYYMMDD>.log.
#pragma once

#include <cstdint>
#include <mutex>
#include <string>

namespace wh {

// Line form (local time, blanks between fields):
//   2026-11-21 15:40:01 127.0.0.1 GET /console/login 200 512 0.84
// date, time, client address, method, path (percent-escaped control bytes and blanks; the query
// string is left out because forms may carry secrets there), status, bytes sent ("-" when the
// host did not write the answer itself, as for static files), milliseconds from the request's
// arrival to its end. A new file starts with each local day.
class AccessLog {
public:
    AccessLog() = default;
    ~AccessLog();
    AccessLog(const AccessLog&) = delete;
    AccessLog& operator=(const AccessLog&) = delete;

    // Sets the directory; with `enabled` false every Write does nothing. The directory is
    // created when missing. False with `error` when it cannot be created.
    bool Open(const std::string& directory, bool enabled, std::string& error);

    // Writes one line (safe from any thread). `bytes` < 0 prints "-".
    void Write(const char* peer, const char* method, const char* path, int status, long long bytes,
               double milliseconds);

    // The file written today (for messages and tests).
    std::string CurrentPath();

private:
    std::string PathFor(const char* day) const;

    std::mutex m_mutexFile;  // guards m_nFd and m_strDay
    std::string m_strDir;    // set once by Open
    bool m_bEnabled = false;
    int m_nFd = -1;
    std::string m_strDay;  // YYYYMMDD of the open file
};

// Percent-escapes bytes below 0x21, 0x7f and "%" so that a path stays one field of one line.
std::string EscapeLogField(const char* text);

}  // namespace wh
