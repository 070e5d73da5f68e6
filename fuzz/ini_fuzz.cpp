// Fuzz target: tarn::CIniFile loading, look-ups and saving.
//
// Input: the bytes of an INI file. Properties: LoadFile agrees with a model reader that takes
// the file in the reader's pieces of at most 1023 bytes (a longer physical line arrives as
// several lines, kept so on purpose), stops at the first byte zero of a piece, and applies the
// section, setting and ignore rules; the look-ups answer from what was loaded; the saved text
// is the canonical form; and the saved file loads to the same contents. The one exception is
// kept as it is: a section name taken from a line whose "]" stands before its "[" can hold a
// "]" and reads back shorter.
//
// The file lives in memory (memfd), reached by its /proc/self/fd path.
#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <list>
#include <map>
#include <string>

#include "common/IniFile.h"
#include "fuzz/FuzzCheck.h"

namespace {

using ws_fuzz::Show;
using Contents = std::map<std::string, std::map<std::string, std::string>>;

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

std::string Trim(const std::string& text) {
    const char* blanks = " \t\r\n";
    const size_t first = text.find_first_not_of(blanks);
    if (first == std::string::npos)
        return "";
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

// The file as the reader sees it: pieces that end after a line feed or after 1023 bytes, each
// cut at its first zero byte, empty ones skipped, one final line feed or carriage return
// dropped.
std::list<std::string> ModelLines(const std::string& bytes) {
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

int ModelLoad(const std::string& bytes, Contents& contents) {
    std::string section;
    for (const std::string& line : ModelLines(bytes)) {
        const size_t open = line.find('[');
        if (open != std::string::npos) {
            const size_t close = line.find(']');
            if (close == std::string::npos)
                return -1;
            // A "]" before the "[" gives the rest of the line after the "[".
            section = Trim(close > open ? line.substr(open + 1, close - open - 1)
                                        : line.substr(open + 1));
            continue;
        }
        const size_t eq = line.find('=');
        if (eq == std::string::npos)
            continue;
        if (section.empty())
            return -1;
        const std::string key = Trim(line.substr(0, eq));
        if (!key.empty())
            contents[section][key] = Trim(line.substr(eq + 1));
    }
    return 0;
}

std::string Canonical(const Contents& contents) {
    std::string text;
    for (const auto& s : contents) {
        text += "[" + s.first + "]\n";
        for (const auto& kv : s.second)
            text += kv.first + "=" + kv.second + "\n";
        text += "\n";
    }
    return text;
}

Contents Loaded(tarn::CIniFile& ini) {
    Contents contents;
    std::list<std::string> names;
    FUZZ_CHECK(ini.GetSectionNames(names), "");
    for (const std::string& name : names) {
        std::map<std::string, std::string> keys;
        FUZZ_CHECK(ini.GetSection(name.c_str(), keys), name);
        contents[name] = keys;
    }
    return contents;
}

std::string ShowContents(const Contents& contents) {
    return Show(Canonical(contents));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const MemFile file("ini-fuzz");
    const std::string input(reinterpret_cast<const char*>(data), size);
    file.Write(input);

    Contents want;
    const int wantStatus = ModelLoad(input, want);
    tarn::CIniFile ini;
    const bool loaded = ini.Init(file.path);
    FUZZ_EQ(loaded, wantStatus == 0, Show(input));
    const Contents got = Loaded(ini);
    FUZZ_CHECK(got == want,
               Show(input) + "\ngot  " + ShowContents(got) + "\nwant " + ShowContents(want));

    // Look-ups: the value, or the default for an empty one; a missing section gives the default.
    for (const auto& s : want) {
        for (const auto& kv : s.second) {
            const std::string value =
                ini.GetIniSetting(s.first.c_str(), kv.first.c_str(), "\x01" "default");
            FUZZ_EQ(value, kv.second.empty() ? "\x01" "default" : kv.second, Show(input));
        }
    }
    if (want.count("\x02none") == 0)
        FUZZ_EQ(ini.GetIniSetting("\x02none", "k", "d"), "d", Show(input));

    // Saving (over the file it was read from) writes the canonical text, which loads to the
    // same contents.
    FUZZ_EQ(ini.WriteFile(), 0, Show(input));
    const std::string text = file.Read();
    FUZZ_EQ(text, Canonical(want), Show(input));
    tarn::CIniFile again;
    Contents reread;
    bool bracketInName = false;
    for (const auto& s : want)
        bracketInName = bracketInName || s.first.find(']') != std::string::npos;
    FUZZ_EQ(again.Init(file.path), ModelLoad(text, reread) == 0, Show(text));
    FUZZ_CHECK(Loaded(again) == reread, Show(text));
    FUZZ_CHECK(bracketInName || reread == want,
               Show(input) + "\nsaved " + Show(text) + "\nreread " + ShowContents(reread));
    return 0;
}
