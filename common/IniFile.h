// tarn::CIniFile: a whole INI file read into memory, changed there and written back whole.
#pragma once

#include <cstdio>
#include <list>
#include <map>
#include <string>

#include "common/Export.h"

namespace tarn {

// Sections and keys are kept sorted byte-wise (not in file order); comments, blank lines and the
// original layout are not kept. A line is a section header when it holds "[" (and must then hold
// "]"), a setting when it holds "=", and is ignored otherwise: there is no comment character.
// A changed object saves itself in its destructor. Not thread-safe: one object per thread.
class WS_API CIniFile {
public:
    CIniFile();
    explicit CIniFile(const char* path);
    explicit CIniFile(const std::string& path);
    ~CIniFile();
    CIniFile(const CIniFile&) = delete;
    CIniFile& operator=(const CIniFile&) = delete;

    bool Init(const char* path);
    bool Init(const std::string& path);
    bool Init();

    int LoadFile();  // 0, or -1 when the file cannot be opened or a line is malformed
    int ReadLine(FILE* file, std::string& line);
    int TrimString(std::string& text);

    int ReadItem(const std::string& section, const std::string& key, std::string& value);
    std::string GetIniSetting(const char* section, const char* key, const char* def);
    int WriteItem(const std::string& section, const std::string& key, const std::string& value);
    void PutIniSetting(const char* section, const char* key, const char* value);
    void RemoveIniSetting(const char* section, const char* key);
    bool GetSection(const char* section, std::map<std::string, std::string>& out);
    bool GetSectionNames(std::list<std::string>& out);

    int WriteFile();
    int SaveIni();
    int Dump();

private:
    std::string m_strPath;
    std::map<std::string, std::map<std::string, std::string>> m_mapContents;
    bool m_bModified = false;
};

}  // namespace tarn
