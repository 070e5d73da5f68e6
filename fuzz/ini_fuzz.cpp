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
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <list>
#include <map>
#include <string>

#include "common/IniFile.h"
#include "fuzz/FuzzCheck.h"
#include "fuzz/IniModel.h"

namespace {

using ws_fuzz::Contents;
using ws_fuzz::MemFile;
using ws_fuzz::ModelLoad;
using ws_fuzz::Show;

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
            const std::string value = ini.GetIniSetting(s.first.c_str(), kv.first.c_str(),
                                                        "\x01"
                                                        "default");
            FUZZ_EQ(value,
                    kv.second.empty() ? "\x01"
                                        "default"
                                      : kv.second,
                    Show(input));
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
