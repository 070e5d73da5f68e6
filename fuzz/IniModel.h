// A plain model of the INI reader for the fuzz targets (pieces of at most 1023 bytes, the
// section, setting and ignore rules), and files in memory to hand to code that opens a path.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <list>
#include <map>
#include <string>

#include "fuzz/FuzzCheck.h"

namespace ws_fuzz {

using Contents = std::map<std::string, std::map<std::string, std::string>>;

// A file in memory (memfd), reached by its /proc/self/fd path.
struct MemFile {
    int fd = -1;
    std::string path;
    explicit MemFile(const char* name) {
        fd = ::memfd_create(name, 0);
        if (fd < 0) {
            std::perror("memfd_create");
            std::abort();
        }
        path = "/proc/self/fd/" + std::to_string(fd);
    }
    void Write(const std::string& bytes) const {
        if (::ftruncate(fd, 0) != 0 ||
            ::pwrite(fd, bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size())) {
            std::perror("memfd write");
            std::abort();
        }
    }
    std::string Read() const {
        std::string bytes;
        char buf[4096];
        off_t at = 0;
        ssize_t n;
        while ((n = ::pread(fd, buf, sizeof buf, at)) > 0) {
            bytes.append(buf, static_cast<size_t>(n));
            at += n;
        }
        return bytes;
    }
};

inline std::string IniTrim(const std::string& text) {
    const char* blanks = " \t\r\n";
    const size_t first = text.find_first_not_of(blanks);
    if (first == std::string::npos)
        return "";
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

// The file as the reader sees it: pieces that end after a line feed or after 1023 bytes, each
// cut at its first zero byte, empty ones skipped, one final line feed or carriage return
// dropped.
inline std::list<std::string> ModelLines(const std::string& bytes) {
    std::list<std::string> lines;
    size_t at = 0;
    while (at < bytes.size()) {
        size_t end = at;
        while (end < bytes.size() && end - at < 1023 && bytes[end] != '\n')
            ++end;
        if (end < bytes.size() && end - at < 1023)
            ++end;  // the line feed belongs to this piece
        std::string piece = ws_fuzz::CText(bytes.substr(at, end - at));
        at = end;
        if (piece.empty())
            continue;
        if (piece.back() == '\n' || piece.back() == '\r')
            piece.pop_back();
        lines.push_back(piece);
    }
    return lines;
}

inline int ModelLoad(const std::string& bytes, Contents& contents) {
    std::string section;
    for (const std::string& line : ModelLines(bytes)) {
        const size_t open = line.find('[');
        if (open != std::string::npos) {
            const size_t close = line.find(']');
            if (close == std::string::npos)
                return -1;
            // A "]" before the "[" gives the rest of the line after the "[".
            section = IniTrim(close > open ? line.substr(open + 1, close - open - 1)
                                           : line.substr(open + 1));
            continue;
        }
        const size_t eq = line.find('=');
        if (eq == std::string::npos)
            continue;
        if (section.empty())
            return -1;
        const std::string key = IniTrim(line.substr(0, eq));
        if (!key.empty())
            contents[section][key] = IniTrim(line.substr(eq + 1));
    }
    return 0;
}

}  // namespace ws_fuzz
