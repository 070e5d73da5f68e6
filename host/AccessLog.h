// AccessLog: one line per request in <install>/middle/log/webharbour_access<YYYYMMDD>.log.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace wh {

// Line form (local time, blanks between fields):
//   2026-11-21 15:40:01 127.0.0.1 GET /console/login 200 512 0.84
// date, time, client address, method, path (percent-escaped control bytes and blanks; the query
// string is left out because forms may carry secrets there), status, bytes sent ("-" when the
// host did not write the answer itself, as for static files), milliseconds from the request's
// arrival to its end. A new file starts with each local day, and within a day whenever the file
// would grow past the size limit: webharbour_access<YYYYMMDD>.log, then
// webharbour_access<YYYYMMDD>_1.log, _2 and so on.
//
// Lines are gathered in memory and written by a flusher thread every 200 ms (sooner when 64 KiB
// have gathered) and at Close: a write per request cost a tenth of the request rate. Each worker
// thread gathers into a buffer of its own (one lock that only it and the flusher take), since one
// buffer for all threads made them queue for its lock; so lines of different threads within one
// flush stand in the file in the order of their threads, not of their times. What a crash can
// lose is the last 200 ms of lines.
class AccessLog {
public:
    AccessLog();
    ~AccessLog();
    AccessLog(const AccessLog&) = delete;
    AccessLog& operator=(const AccessLog&) = delete;

    // Sets the directory and, when `enabled`, creates it if missing and starts the flusher;
    // with `enabled` false every Write does nothing. False with `error` when the directory cannot
    // be created.
    // `maxBytes` 0: no size limit.
    bool Open(const std::string& directory, bool enabled, long long maxBytes, std::string& error);

    // Adds one line (safe from any thread). `bytes` < 0 prints "-".
    void Write(const char* peer, const char* method, const char* path, int status, long long bytes,
               double milliseconds);

    // Writes what has gathered. `wait` false gives up at once when another thread holds the
    // lock (for the exit path of a stop that handlers hold up).
    void Flush(bool wait = true);

    // Stops the flusher and writes the rest; Write does nothing afterwards.
    void Close();

    // The file written today (for messages and tests).
    std::string CurrentPath() const;

private:
    // The lines one thread gathered since the last flush, by day ("YYYYMMDD", lines).
    struct ThreadBuffer {
        std::mutex mutex;  // guards segments: taken by the owning thread and by the flusher
        std::vector<std::pair<std::string, std::string>> segments;
        size_t bytes = 0;  // guarded by mutex
    };
    ThreadBuffer& MyBuffer();
    void CollectLocked();  // m_mutexFile held: every thread's lines into the files

    std::string PathFor(const char* day, int part) const;
    void OpenFileLocked();  // m_mutexFile held: the day's current part, continued
    void FlushLocked();     // m_mutexFile held
    void FlusherLoop();

    const unsigned long long m_nSerial;   // this log's number in the process, never reused
    std::string m_strDir;                 // set once by Open
    long long m_nMaxBytes = 0;            // set once by Open
    std::atomic<bool> m_bEnabled{false};  // also read without the lock, by Write

    std::mutex m_mutexBuffers;  // guards m_vecBuffers (taken after m_mutexFile when both are)
    std::vector<std::unique_ptr<ThreadBuffer>> m_vecBuffers;  // one per writing thread

    std::mutex m_mutexFile;  // guards every member below
    std::condition_variable m_condFlush;
    std::string m_strPending;  // lines being written, all of day m_strDay
    int m_nFd = -1;
    std::string m_strDay;        // YYYYMMDD of m_nFd and of the pending lines
    int m_nPart = 0;             // 0: webharbour_access<day>.log; n: ..._<n>.log
    long long m_nFileBytes = 0;  // the size of m_nFd's file
    bool m_bClosing = false;
    std::thread m_thrFlusher;
};

// Percent-escapes bytes below 0x21, 0x7f and "%" so that a path stays one field of one line.
std::string EscapeLogField(const char* text);

}  // namespace wh
