// AccessLog: dated access log files, one write(2) per line.
#include "host/AccessLog.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>

namespace wh {

AccessLog::~AccessLog() {
    if (m_nFd >= 0)
        ::close(m_nFd);
}

bool AccessLog::Open(const std::string& directory, bool enabled, std::string& error) {
    m_strDir = directory;
    m_bEnabled = enabled;
    if (!enabled)
        return true;
    std::string cur;
    for (size_t i = 0; i <= directory.size(); ++i) {
        if (i == directory.size() || directory[i] == '/') {
            if (!cur.empty() && ::mkdir(cur.c_str(), 0755) != 0 && errno != EEXIST) {
                error = "cannot create the log directory " + cur + ": " + std::strerror(errno);
                return false;
            }
        }
        if (i < directory.size())
            cur += directory[i];
    }
    return true;
}

std::string AccessLog::PathFor(const char* day) const {
    return m_strDir + "/webharbour_access" + day + ".log";
}

std::string AccessLog::CurrentPath() {
    char day[16];
    time_t now = std::time(nullptr);
    struct tm local;
    localtime_r(&now, &local);
    std::strftime(day, sizeof(day), "%Y%m%d", &local);
    return PathFor(day);
}

void AccessLog::Write(const char* peer, const char* method, const char* path, int status,
                      long long bytes, double milliseconds) {
    if (!m_bEnabled)
        return;
    time_t now = std::time(nullptr);
    struct tm local;
    localtime_r(&now, &local);
    char stamp[32];
    char day[16];
    std::strftime(stamp, sizeof(stamp), "%Y-%m-%d %H:%M:%S", &local);
    std::strftime(day, sizeof(day), "%Y%m%d", &local);
    std::string line = stamp;
    line += ' ';
    line += peer != nullptr && *peer != '\0' ? peer : "-";
    line += ' ';
    line += EscapeLogField(method != nullptr ? method : "-");
    line += ' ';
    line += EscapeLogField(path != nullptr ? path : "-");
    char tail[96];
    if (bytes >= 0)
        std::snprintf(tail, sizeof(tail), " %d %lld %.2f\n", status, bytes, milliseconds);
    else
        std::snprintf(tail, sizeof(tail), " %d - %.2f\n", status, milliseconds);
    line += tail;

    std::lock_guard<std::mutex> lock(m_mutexFile);
    if (m_nFd < 0 || m_strDay != day) {
        if (m_nFd >= 0)
            ::close(m_nFd);
        m_strDay = day;
        m_nFd = ::open(PathFor(day).c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
        if (m_nFd < 0)
            return;  // the request has been answered; a log that cannot be written is skipped
    }
    // O_APPEND and one write per line keep lines whole even with another writer on the file.
    ssize_t n = ::write(m_nFd, line.data(), line.size());
    (void)n;
}

std::string EscapeLogField(const char* text) {
    static const char kHex[] = "0123456789ABCDEF";
    std::string out;
    for (const unsigned char* p = reinterpret_cast<const unsigned char*>(text); *p != 0; ++p) {
        if (*p <= 0x20 || *p == 0x7f || *p == '%') {
            out += '%';
            out += kHex[*p >> 4];
            out += kHex[*p & 15];
        } else {
            out += static_cast<char>(*p);
        }
    }
    return out.empty() ? "-" : out;
}

}  // namespace wh
