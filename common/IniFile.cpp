// tarn::CIniFile: a whole INI file read into memory, changed there and written back whole.
// The load and save rules below are kept exactly, quirks included.
#include "common/IniFile.h"

#include <cstring>

namespace tarn {

CIniFile::CIniFile() {}

CIniFile::CIniFile(const char* path) : m_strPath(path != nullptr ? path : "") {}

CIniFile::CIniFile(const std::string& path) : m_strPath(path) {}

CIniFile::~CIniFile() {
    if (m_bModified) {
        SaveIni();  // errors in saving are ignored
    }
}

bool CIniFile::Init(const char* path) {
    m_strPath = path != nullptr ? path : "";
    return LoadFile() == 0;
}

bool CIniFile::Init(const std::string& path) {
    m_strPath = path;
    return LoadFile() == 0;
}

bool CIniFile::Init() {
    return LoadFile() == 0;
}

int CIniFile::ReadLine(FILE* file, std::string& line) {
    char buf[1024];
    for (;;) {
        if (std::fgets(buf, sizeof(buf), file) == nullptr)
            return -1;
        size_t len = std::strlen(buf);
        if (len == 0)
            continue;  // empty reads are skipped
        if (buf[len - 1] == '\n' || buf[len - 1] == '\r') {
            --len;  // only the one last character: "\r\n" leaves the "\r" to the trimming
        }
        line.assign(buf, len);
        return 0;
    }
}

int CIniFile::TrimString(std::string& text) {
    static const char kBlanks[] = " \t\r\n";
    std::string::size_type last = text.find_last_not_of(kBlanks);
    if (last == std::string::npos) {
        text.clear();
        return 0;
    }
    text.erase(last + 1);
    text.erase(0, text.find_first_not_of(kBlanks));
    return 0;
}

int CIniFile::LoadFile() {
    // The contents are not cleared: loading adds to and overwrites what is there.
    FILE* file = std::fopen(m_strPath.c_str(), "r");
    if (file == nullptr)
        return -1;
    std::string section;
    std::string line;
    while (ReadLine(file, line) == 0) {
        std::string::size_type open = line.find('[');
        if (open != std::string::npos) {
            std::string::size_type close = line.find(']');
            if (close == std::string::npos) {
                std::fclose(file);
                return -1;
            }
            // Between the first "[" and the first "]"; a "]" before the "[" gives the rest of
            // the line after the "[" (the count wraps, as substr's count does).
            section = line.substr(open + 1, close - open - 1);
            TrimString(section);
            continue;  // the section is created only when its first key arrives
        }
        std::string::size_type eq = line.find('=');
        if (eq == std::string::npos)
            continue;  // the only comment rule: no "=", no setting
        std::string key = line.substr(0, eq);
        std::string value = line.substr(eq + 1);
        TrimString(key);
        TrimString(value);
        if (section.empty()) {
            std::fclose(file);
            return -1;
        }
        if (key.empty())
            continue;
        m_mapContents[section][key] = value;
    }
    return std::fclose(file);
}

int CIniFile::ReadItem(const std::string& section, const std::string& key, std::string& value) {
    auto it = m_mapContents.find(section);
    if (it == m_mapContents.end())
        return -1;
    // A missing key is added with an empty value (a side effect existing callers rely on; the
    // modified flag is not set).
    value = it->second[key];
    return value.empty() ? -1 : 0;
}

std::string CIniFile::GetIniSetting(const char* section, const char* key, const char* def) {
    if (section == nullptr || key == nullptr || def == nullptr)
        return "";
    std::string value;
    if (ReadItem(section, key, value) == -1)
        return def;
    return value;
}

int CIniFile::WriteItem(const std::string& section, const std::string& key,
                        const std::string& value) {
    m_mapContents[section][key] = value;
    m_bModified = true;
    return 0;
}

void CIniFile::PutIniSetting(const char* section, const char* key, const char* value) {
    if (section == nullptr || key == nullptr || value == nullptr)
        return;
    WriteItem(section, key, value);
}

void CIniFile::RemoveIniSetting(const char* section, const char* key) {
    if (section == nullptr)
        return;
    auto it = m_mapContents.find(section);
    if (it != m_mapContents.end()) {
        if (key != nullptr) {
            it->second.erase(key);
        } else {
            m_mapContents.erase(it);
        }
    }
    m_bModified = true;  // even when nothing was found to remove
}

bool CIniFile::GetSection(const char* section, std::map<std::string, std::string>& out) {
    if (section == nullptr)
        return false;
    auto it = m_mapContents.find(section);
    if (it != m_mapContents.end())
        out = it->second;
    return true;
}

bool CIniFile::GetSectionNames(std::list<std::string>& out) {
    for (const auto& s : m_mapContents)
        out.push_back(s.first);
    return true;
}

int CIniFile::WriteFile() {
    FILE* file = std::fopen(m_strPath.c_str(), "w");
    if (file == nullptr)
        return -1;
    for (const auto& s : m_mapContents) {
        std::fprintf(file, "[%s]\n", s.first.c_str());
        for (const auto& kv : s.second) {
            std::fprintf(file, "%s=%s\n", kv.first.c_str(), kv.second.c_str());
        }
        std::fputs("\n", file);
    }
    return std::fclose(file);
}

int CIniFile::SaveIni() {
    return WriteFile();
}

int CIniFile::Dump() {
    for (const auto& s : m_mapContents) {
        std::printf("[%s]\n", s.first.c_str());
        for (const auto& kv : s.second) {
            std::printf("%s=%s\n", kv.first.c_str(), kv.second.c_str());
        }
        std::printf("\n");
    }
    return 0;
}

}  // namespace tarn
