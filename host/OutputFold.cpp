// OutputFold: the capture of standard output at process start and the folding reader thread.
#include "host/OutputFold.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <mutex>
#include <thread>

namespace wh {

void LineFolder::Feed(const char* data, size_t length) {
    size_t begin = 0;
    for (size_t i = 0; i < length; ++i) {
        if (data[i] != '\n')
            continue;
        m_strPartial.append(data + begin, i - begin);
        Line(m_strPartial);
        m_strPartial.clear();
        begin = i + 1;
    }
    m_strPartial.append(data + begin, length - begin);
    if (m_strPartial.size() > kMaxLine) {
        Line(m_strPartial);
        m_strPartial.clear();
    }
}

void LineFolder::Line(const std::string& line) {
    auto it = m_mapSeen.find(line);
    if (it != m_mapSeen.end()) {
        ++it->second;
        return;
    }
    if (m_mapSeen.size() < kMaxDistinct)
        m_mapSeen.emplace(line, 0);
    m_sink(m_context, line + "\n");
}

void LineFolder::EndInterval(int seconds) {
    for (const auto& seen : m_mapSeen) {
        if (seen.second > 0)
            m_sink(m_context, seen.first + " [+" + std::to_string(seen.second) + " more in " +
                                  std::to_string(seconds) + " s]\n");
    }
    m_mapSeen.clear();
}

void LineFolder::Finish(int seconds) {
    if (!m_strPartial.empty()) {
        Line(m_strPartial);
        m_strPartial.clear();
    }
    EndInterval(seconds);
}

namespace {

int g_nReadFd = -1;      // the pipe's read end; set before main, read by the reader thread
int g_nOriginalFd = -1;  // the standard output we were started with
std::atomic<int> g_nSeconds{60};
std::mutex g_mutexReader;  // guards g_thrReader: the stop may come from the watchdog thread
std::thread g_thrReader;

// Runs before any shared library's initialiser (they print at load): fd 1 becomes the write end
// of a pipe, the original output is kept aside. Raw system calls: nothing is set up this early.
void CaptureOutput(int, char**, char**) {
    if (::syscall(SYS_fcntl, 1, F_GETFD) < 0)
        return;  // no standard output at all: nothing to fold
    int fds[2];
    if (::syscall(SYS_pipe2, fds, O_CLOEXEC) != 0)
        return;
    long original = ::syscall(SYS_fcntl, 1, F_DUPFD_CLOEXEC, 3);
    if (original < 0 || ::syscall(SYS_dup3, fds[1], 1, 0) < 0) {
        ::syscall(SYS_close, fds[0]);
        ::syscall(SYS_close, fds[1]);
        return;
    }
    ::syscall(SYS_close, fds[1]);
    g_nReadFd = fds[0];
    g_nOriginalFd = static_cast<int>(original);
}
__attribute__((section(".preinit_array"),
               used)) void (*const g_pCaptureOutput)(int, char**, char**) = &CaptureOutput;

void WriteOriginal(void*, const std::string& text) {
    size_t done = 0;
    while (done < text.size()) {
        ssize_t n = ::write(g_nOriginalFd, text.data() + done, text.size() - done);
        if (n <= 0)
            return;  // nobody reads our output any more: the lines are dropped
        done += static_cast<size_t>(n);
    }
}

void ReaderLoop() {
    LineFolder folder(&WriteOriginal, nullptr);
    // The interval is read afresh each time: the settings may shorten it after the start.
    auto intervalStart = std::chrono::steady_clock::now();
    char buf[16384];
    for (;;) {
        pollfd p{g_nReadFd, POLLIN, 0};
        int ready = ::poll(&p, 1, 1000);
        if (ready > 0) {
            ssize_t n = ::read(g_nReadFd, buf, sizeof(buf));
            if (n == 0)
                break;  // every writer is gone: the capture ended
            if (n > 0)
                folder.Feed(buf, static_cast<size_t>(n));
        } else {
            // Lines the library left in stdio's buffer come out within a second.
            std::fflush(stdout);
        }
        const int seconds = g_nSeconds.load();
        if (std::chrono::steady_clock::now() - intervalStart >= std::chrono::seconds(seconds)) {
            folder.EndInterval(seconds);
            intervalStart = std::chrono::steady_clock::now();
        }
    }
    folder.Finish(g_nSeconds.load());
}

}  // namespace

void StartOutputFold(int seconds) {
    g_nSeconds = seconds;
    std::lock_guard<std::mutex> lock(g_mutexReader);
    if (g_nReadFd < 0 || g_thrReader.joinable())
        return;
    g_thrReader = std::thread(&ReaderLoop);
}

void SetOutputFoldSeconds(int seconds) {
    g_nSeconds = seconds;
}

void StopOutputFold() {
    std::fflush(stdout);
    std::lock_guard<std::mutex> lock(g_mutexReader);
    if (!g_thrReader.joinable())
        return;
    // Standard output now goes where it went before; the pipe's last writer is gone, so the
    // reader reads to the end, writes the counts and ends.
    ::dup2(g_nOriginalFd, 1);
    g_thrReader.join();
}

}  // namespace wh
