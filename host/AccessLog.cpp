// AccessLog: dated access log files, gathered lines written by a flusher thread.
#include "host/AccessLog.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <ctime>

namespace wh {

namespace {

const size_t kFlushBytes = 64 * 1024;
std::atomic<unsigned long long> g_nLogSerial{0};
const auto kFlushEvery = std::chrono::milliseconds(200);

}  // namespace

AccessLog::AccessLog() : m_nSerial(++g_nLogSerial) {}

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
        CollectLocked();
    }
}

AccessLog::ThreadBuffer& AccessLog::MyBuffer() {
    // By the log's serial number, not its address: a later log at the same address must not
    // find the buffer of one that is gone.
    thread_local unsigned long long t_owner = 0;
    thread_local ThreadBuffer* t_buffer = nullptr;
    if (t_owner != m_nSerial) {
        std::lock_guard<std::mutex> lock(m_mutexBuffers);
        m_vecBuffers.push_back(std::make_unique<ThreadBuffer>());
        t_buffer = m_vecBuffers.back().get();
        t_owner = m_nSerial;
    }
    return *t_buffer;
}

void AccessLog::CollectLocked() {
    // Day by day (the text of a day sorts in time order), the older day's lines first.
    std::vector<std::pair<std::string, std::string>> all;
    {
        std::lock_guard<std::mutex> lock(m_mutexBuffers);
        for (auto& buffer : m_vecBuffers) {
            std::lock_guard<std::mutex> own(buffer->mutex);
            for (auto& segment : buffer->segments)
                all.push_back(std::move(segment));
            buffer->segments.clear();
            buffer->bytes = 0;
        }
    }
    std::stable_sort(all.begin(), all.end(),
                     [](const auto& a, const auto& b) { return a.first < b.first; });
    for (auto& segment : all) {
        if (segment.first != m_strDay) {
            // The lines of the day before go to that day's file, then the new day's file starts.
            FlushLocked();
            if (m_nFd >= 0)
                ::close(m_nFd);
            m_nFd = -1;
            m_strDay = segment.first;
        }
        m_strPending += segment.second;
    }
    FlushLocked();
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
    if (m_nFd < 0 && !m_strPending.empty())
        OpenFileLocked();
    size_t begin = 0;
    while (m_nFd >= 0 && begin < m_strPending.size()) {
        // As many whole lines as the file still takes (one at least, into an empty file);
        // the rest goes to the next part.
        size_t end = m_strPending.size();
        if (m_nMaxBytes > 0) {
            const long long room = m_nMaxBytes - m_nFileBytes;
            end = begin;
            for (size_t nl = m_strPending.find('\n', begin); nl != std::string::npos;
                 nl = m_strPending.find('\n', nl + 1)) {
                if (static_cast<long long>(nl + 1 - begin) > room &&
                    (end > begin || m_nFileBytes > 0))
                    break;
                end = nl + 1;
            }
            if (end == begin && m_nFileBytes > 0) {
                ::close(m_nFd);
                ++m_nPart;
                m_nFd = ::open(PathFor(m_strDay.c_str(), m_nPart).c_str(),
                               O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0640);
                m_nFileBytes = 0;
                continue;
            }
            if (end == begin)
                end = m_strPending.size();  // no line end at all: the rest as it is
        }
        // O_APPEND keeps whole lines even with another writer on the file.
        size_t done = begin;
        while (done < end) {
            ssize_t n = ::write(m_nFd, m_strPending.data() + done, end - done);
            if (n <= 0)
                break;  // a log that cannot be written is skipped; the requests were answered
            done += static_cast<size_t>(n);
        }
        m_nFileBytes += static_cast<long long>(done - begin);
        if (done < end)
            break;
        begin = end;
    }
    m_strPending.clear();
}

void AccessLog::Flush(bool wait) {
    std::unique_lock<std::mutex> lock(m_mutexFile, std::defer_lock);
    if (wait)
        lock.lock();
    else if (!lock.try_lock())
        return;
    CollectLocked();
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
    CollectLocked();
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

namespace {

// Appends `text` percent-escaping bytes below 0x21, 0x7f and "%"; "-" for an empty text.
void AppendEscaped(std::string& out, const char* text) {
    static const char kHex[] = "0123456789ABCDEF";
    const size_t before = out.size();
    for (const unsigned char* p = reinterpret_cast<const unsigned char*>(text); *p != 0; ++p) {
        if (*p <= 0x20 || *p == 0x7f || *p == '%') {
            out += '%';
            out += kHex[*p >> 4];
            out += kHex[*p & 15];
        } else {
            out += static_cast<char>(*p);
        }
    }
    if (out.size() == before)
        out += '-';
}

void AppendNumber(std::string& out, long long value) {
    char buf[24];
    auto r = std::to_chars(buf, buf + sizeof(buf), value);
    out.append(buf, static_cast<size_t>(r.ptr - buf));
}

}  // namespace

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
    ThreadBuffer& buffer = MyBuffer();
    std::unique_lock<std::mutex> lock(buffer.mutex);
    if (buffer.segments.empty() || buffer.segments.back().first != t_day)
        buffer.segments.emplace_back(t_day, std::string());
    std::string& line = buffer.segments.back().second;
    const size_t before = line.size();
    line += t_stamp;
    line += ' ';
    line += peer != nullptr && *peer != '\0' ? peer : "-";
    line += ' ';
    AppendEscaped(line, method != nullptr ? method : "-");
    line += ' ';
    AppendEscaped(line, path != nullptr ? path : "-");
    line += ' ';
    AppendNumber(line, status);
    line += ' ';
    if (bytes >= 0)
        AppendNumber(line, bytes);
    else
        line += '-';
    line += ' ';
    const long long hundredths = std::llround(milliseconds * 100);
    AppendNumber(line, hundredths / 100);
    line += '.';
    line += static_cast<char>('0' + hundredths % 100 / 10);
    line += static_cast<char>('0' + hundredths % 10);
    line += '\n';
    buffer.bytes += line.size() - before;
    const bool full = buffer.bytes >= kFlushBytes;
    lock.unlock();
    if (full)
        m_condFlush.notify_one();
}

std::string EscapeLogField(const char* text) {
    std::string out;
    AppendEscaped(out, text);
    return out;
}

}  // namespace wh
