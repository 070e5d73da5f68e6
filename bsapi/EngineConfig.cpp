// Which engine serves, and the settings the engines read: the environment first, then section
// [bsapi] of <install>/middle/Conf/dbconfig.ini.
//
// The file is read once per process. Like the installation's other INI files it has no comment
// character: a line holding neither "=" nor "[" is ignored; a value is everything after the first
// "=" (a connection string holds "=" itself), without surrounding blanks.
#include "bsapi/EngineConfig.h"

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <mutex>

#include "bsapi/Engine.h"
#include "bsapi/Location.h"

namespace bsapi {

namespace {

std::string Trim(const std::string& s) {
    size_t b = s.find_first_not_of(" \t\r\n");
    if (b == std::string::npos)
        return "";
    size_t e = s.find_last_not_of(" \t\r\n");
    return s.substr(b, e - b + 1);
}

const std::map<std::string, std::string>& FileSettings() {
    // Never destroyed: a thread may still open handles while the process runs its exit-time
    // destructors.
    static const std::map<std::string, std::string>& settings = *[] {
        auto* out = new std::map<std::string, std::string>;
        std::ifstream in(InstallDir() + "/middle/Conf/dbconfig.ini");
        std::string line, section;
        while (std::getline(in, line)) {
            std::string t = Trim(line);
            if (!t.empty() && t[0] == '[' && t.find(']') != std::string::npos) {
                section = Trim(t.substr(1, t.find(']') - 1));
                continue;
            }
            size_t eq = t.find('=');
            if (eq == std::string::npos || section != "bsapi")
                continue;
            (*out)[Trim(t.substr(0, eq))] = Trim(t.substr(eq + 1));
        }
        return out;
    }();
    return settings;
}

}  // namespace

std::string EngineSetting(const char* name) {
    const char* env = std::getenv(name);
    if (env != nullptr && *env != '\0')
        return env;
    const auto& file = FileSettings();
    auto it = file.find(name);
    return it == file.end() ? std::string() : it->second;
}

long EngineSettingMs(const char* name, long dflt, long lo, long hi) {
    std::string text = EngineSetting(name);
    if (text.empty())
        return dflt;
    char* end = nullptr;
    long v = std::strtol(text.c_str(), &end, 10);
    if (end == text.c_str() || *end != '\0' || v < lo || v > hi)
        return dflt;
    return v;
}

CEngine* EngineNamed(const std::string& name) {
    if (name == "sqlite")
        return SqliteEngine();
    if (name == "postgres")
        return PostgresEngine();
    return nullptr;
}

CEngine* ChosenEngine(int& code) {
    std::string name = EngineSetting("BSAPI_ENGINE");
    CEngine* engine = EngineNamed(name.empty() ? "sqlite" : name);
    code = engine ? BS_OK : BS_ERR_NO_ENGINE;
    return engine;
}

}  // namespace bsapi
