// LoginThrottle: the counts in the tree database, the doubling wait and the log lines.
#include "console/LoginThrottle.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <mutex>

#include "common/DebugLog.h"
#include "common/IniFile.h"
#include "console/ConsoleCommon.h"
#include "console/ConsoleUsers.h"
#include "db/QvHandle.h"

namespace console {

namespace {

const char* const kTree = "saas";
const char* const kMainKey = "loginthrottle";

std::mutex g_mutexSettings;  // guards g_settings
ThrottleSettings g_settings;

ThrottleSettings Settings() {
    std::lock_guard<std::mutex> lock(g_mutexSettings);
    return g_settings;
}

std::string UserKey(const std::string& user) {
    return ValidName(user) ? "u-" + user : "";
}

std::string AddressKey(const std::string& address) {
    if (address.empty() || address.size() > 64 || address.find('\\') != std::string::npos)
        return "";
    return "a-" + address;
}

// The "until" of one key, 0 when it has none.
long long Until(const std::string& key) {
    if (key.empty())
        return 0;
    CQvHandleLoc loc;
    if (loc.Treedb_Alloc(kDbAddress, kTree, kMainKey, "", 0x80000, kDbPort) != 0 ||
        loc.Treedb_ReopenSubKey(key, -1) != 0)
        return 0;
    return std::atoll(loc.Treedb_GetPropertyString("until", "0").c_str());
}

// Adds one failure to `key` in one writing transaction; the failures counted so far.
int AddFailure(const std::string& key, time_t now, const ThrottleSettings& settings) {
    if (key.empty())
        return 0;
    CQvHandleLoc loc;
    if (loc.Treedb_AllocEx(kDbAddress, kTree, kMainKey, "", key, 0x80000, kDbPort, true, false,
                           false, 2) != 0 ||
        loc.Treedb_BeginTransaction() != 0)
        return 0;
    const int fails = loc.Treedb_GetPropertyInt("fails", 0) + 1;
    const long long until = static_cast<long long>(now) + WaitAfter(fails, settings);
    if (loc.Treedb_WriteKeyInt("fails", fails) != 0 ||
        loc.Treedb_WriteKeyString("until", std::to_string(until)) != 0 ||
        loc.Treedb_CommitTransaction() != 0)
        return 0;  // the destructor rolls back
    return fails;
}

void Log(const std::string& text) {
    _qvcomm::CDebugLog::WriteTimeLog("console.log", 0, text.c_str());
}

}  // namespace

ThrottleSettings LoadThrottleSettings(const std::string& installPath) {
    ThrottleSettings s;
    tarn::CIniFile ini;
    if (installPath.empty() || !ini.Init(installPath + "/webharbour/middle.ini"))
        return s;
    const struct {
        const char* key;
        int lo, hi;
        int* value;
    } kKeys[] = {{"LoginFreeTries", 0, 1000, &s.freeTries},
                 {"LoginWaitSeconds", 1, 86400, &s.waitSeconds},
                 {"LoginMaxWaitSeconds", 1, 86400 * 7, &s.maxWaitSeconds}};
    for (const auto& k : kKeys) {
        const std::string text = ini.GetIniSetting("console", k.key, "");
        if (text.empty())
            continue;
        char* end = nullptr;
        const long v = std::strtol(text.c_str(), &end, 10);
        if (*end != '\0' || v < k.lo || v > k.hi) {
            std::fprintf(stderr,
                         "console: [console] %s = \"%s\" is not a number from %d to %d; "
                         "keeping %d\n",
                         k.key, text.c_str(), k.lo, k.hi, *k.value);
            continue;
        }
        *k.value = static_cast<int>(v);
    }
    return s;
}

void SetThrottleSettings(const ThrottleSettings& settings) {
    std::lock_guard<std::mutex> lock(g_mutexSettings);
    g_settings = settings;
}

long WaitAfter(int failures, const ThrottleSettings& s) {
    const int over = failures - s.freeTries;
    if (over <= 0)
        return 0;
    long wait = s.waitSeconds;
    for (int i = 1; i < over && wait < s.maxWaitSeconds; ++i)
        wait *= 2;
    return wait < s.maxWaitSeconds ? wait : s.maxWaitSeconds;
}

long WaitLeft(const std::string& user, const std::string& address, time_t now) {
    const long long until = std::max(Until(UserKey(user)), Until(AddressKey(address)));
    return until > now ? static_cast<long>(until - now) : 0;
}

long NoteFailure(const std::string& user, const std::string& address, time_t now,
                 const std::string& why) {
    const ThrottleSettings settings = Settings();
    const int byUser = AddFailure(UserKey(user), now, settings);
    const int byAddress = AddFailure(AddressKey(address), now, settings);
    const long wait = WaitAfter(std::max(byUser, byAddress), settings);
    char line[512];
    std::snprintf(line, sizeof line,
                  "log-in refused: %s; user \"%.64s\" from %.64s (failures: %d by this name, %d "
                  "from this address; next try in %ld s)",
                  why.c_str(), ValidName(user) ? user.c_str() : "<not a valid name>",
                  address.c_str(), byUser, byAddress, wait);
    Log(line);
    return wait;
}

void NoteSuccess(const std::string& user, const std::string& address) {
    CQvHandleLoc loc;
    if (loc.Treedb_Alloc(kDbAddress, kTree, kMainKey, "", 0x80000, kDbPort) != 0)
        return;
    for (const std::string& key : {UserKey(user), AddressKey(address)}) {
        if (!key.empty())
            loc.Treedb_DeleteSubKey(key);
    }
}

}  // namespace console
