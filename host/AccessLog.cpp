// AccessLog: dated access log files, gathered lines written by a flusher thread.
#include "host/AccessLog.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <ctime>

namespace wh {

namespace {

const size_t kFlushBytes = 64 * 1024;
const auto kFlushEvery = std::chrono::milliseconds(200);

}  // namespace

AccessLog::~AccessLog() {
    Close();
}

bool AccessLog::Open(const std::string& directory, bool enabled, long long maxBytes,
                     std::string& error) {
    m_strDir = directory;
    m_nMaxBytes = maxBytes;
    m_bEnabled = enabled;
    if (!enabled)
        return true;
    std::string cur;
    for (size_t i = 0; i <= directory.size(); ++i) {
        if (i == directory.size() || directory[i] == '/') {
            if (!cur.empty() && ::mkdir(cur.c_str(), 0750) != 0 && errno != EEXIST) {
                error = "cannot create the log directory " + cur + ": " + std::strerror(errno);
                return false;
            }
        }
        if (i < directory.size())
            cur += directory[i];
    }
    m_thrFlusher = std::thread([this] { FlusherLoop(); });
    return true;
}

void AccessLog::FlusherLoop() {
    std::unique_lock<std::mutex> lock(m_mutexFile);
    while (!m_bClosing) {
        m_condFlush.wait_for(lock, kFlushEvery);
        FlushLocked();
    }
}

void AccessLog::OpenFileLocked() {
    // A restart within the day goes on with the day's last part.
    m_nPart = 0;
    struct stat st;
    while (::stat(PathFor(m_strDay.c_str(), m_nPart + 1).c_str(), &st) == 0)
        ++m_nPart;
    m_nFd = ::open(PathFor(m_strDay.c_str(), m_nPart).c_str(),
                   O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0640);
    m_nFileBytes = m_nFd >= 0 && ::fstat(m_nFd, &st) == 0 ? st.st_size : 0;
}

void AccessLog::FlushLocked() {
    if (m_strPending.empty())
        return;
    if (m_nFd < 0)
        OpenFileLocked();
    if (m_nFd >= 0 && m_nMaxBytes > 0 && m_nFileBytes > 0 &&
        m_nFileBytes + static_cast<long long>(m_strPending.size()) > m_nMaxBytes) {
        ::close(m_nFd);
        ++m_nPart;
        m_nFd = ::open(PathFor(m_strDay.c_str(), m_nPart).c_str(),
                       O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0640);
        m_nFileBytes = 0;
    }
    if (m_nFd >= 0) {
        // O_APPEND keeps whole lines even with another writer on the file.
        size_t done = 0;
        while (done < m_strPending.size()) {
            ssize_t n = ::write(m_nFd, m_strPending.data() + done, m_strPending.size() - done);
            if (n <= 0)
                break;  // a log that cannot be written is skipped; the requests were answered
            done += static_cast<size_t>(n);
        }
        m_nFileBytes += static_cast<long long>(done);
    }
    m_strPending.clear();
}

void AccessLog::Flush(bool wait) {
    std::unique_lock<std::mutex> lock(m_mutexFile, std::defer_lock);
    if (wait)
        lock.lock();
    else if (!lock.try_lock())
        return;
    FlushLocked();
}

void AccessLog::Close() {
    {
        std::lock_guard<std::mutex> lock(m_mutexFile);
        m_bClosing = true;
        m_bEnabled = false;
    }
    m_condFlush.notify_all();
    if (m_thrFlusher.joinable())
        m_thrFlusher.join();
    std::lock_guard<std::mutex> lock(m_mutexFile);
    FlushLocked();
    if (m_nFd >= 0)
        ::close(m_nFd);
    m_nFd = -1;
}

std::string AccessLog::PathFor(const char* day, int part) const {
    return m_strDir + "/webharbour_access" + day + (part > 0 ? "_" + std::to_string(part) : "") +
           ".log";
}

std::string AccessLog::CurrentPath() const {
    char day[16];
    time_t now = std::time(nullptr);
    struct tm local;
    localtime_r(&now, &local);
    std::strftime(day, sizeof(day), "%Y%m%d", &local);
    return PathFor(day, 0);
}

void AccessLog::Write(const char* peer, const char* method, const char* path, int status,
                      long long bytes, double milliseconds) {
    if (!m_bEnabled)
        return;
    // The local time's texts, once per second per thread: localtime_r takes a process-wide lock.
    thread_local time_t t_last = 0;
    thread_local char t_stamp[32] = {0};
    thread_local char t_day[16] = {0};
    time_t now = std::time(nullptr);
    if (now != t_last) {
        struct tm local;
        localtime_r(&now, &local);
        std::strftime(t_stamp, sizeof(t_stamp), "%Y-%m-%d %H:%M:%S", &local);
        std::strftime(t_day, sizeof(t_day), "%Y%m%d", &local);
        t_last = now;
    }
    const char* day = t_day;
    std::string line = t_stamp;
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
    if (!m_bEnabled)
        return;
    if (m_strDay != day) {
        // The lines of the day before go to that day's file, then the new day's file starts.
        FlushLocked();
        if (m_nFd >= 0)
            ::close(m_nFd);
        m_nFd = -1;
        m_strDay = day;
    }
    m_strPending += line;
    if (m_strPending.size() >= kFlushBytes)
        m_condFlush.notify_one();
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
