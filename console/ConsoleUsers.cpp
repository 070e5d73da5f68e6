// The console's user store: password hashing through libcrypt and the "saas\consoleuser" keys.
#include "console/ConsoleUsers.h"

#include <crypt.h>

#include <cstring>
#include <memory>

#include "console/ConsoleCommon.h"
#include "db/QvHandle.h"

namespace console {

namespace {

// Result codes of the tree database meaning "this key does not exist".
bool IsMissing(int rc) {
    return rc == 28 || rc == 40 || rc == 169 || rc == 176;
}

int OpenUsers(CQvHandleLoc& loc) {
    return loc.Treedb_Alloc(kDbAddress, "saas", "consoleuser", "", 0x80000, kDbPort);
}

}  // namespace

std::string HashPassword(const std::string& password) {
    char setting[CRYPT_GENSALT_OUTPUT_SIZE];
    // A null random source lets libcrypt take its own entropy from the kernel.
    const char* prefixes[] = {"$y$", "$6$"};
    for (const char* prefix : prefixes) {
        if (crypt_gensalt_rn(prefix, 0, nullptr, 0, setting, sizeof setting) == nullptr)
            continue;
        // crypt_data is about 32 KiB: too big for a worker thread's stack to take lightly.
        auto data = std::make_unique<crypt_data>();
        std::memset(data.get(), 0, sizeof(crypt_data));
        const char* out = crypt_r(password.c_str(), setting, data.get());
        if (out != nullptr && out[0] == '$')
            return out;
    }
    return "";
}

bool VerifyPassword(const std::string& password, const std::string& hash) {
    if (hash.size() < 4 || hash[0] != '$')
        return false;
    auto data = std::make_unique<crypt_data>();
    std::memset(data.get(), 0, sizeof(crypt_data));
    const char* out = crypt_r(password.c_str(), hash.c_str(), data.get());
    // libcrypt answers a failure with a string starting with '*'.
    if (out == nullptr || out[0] != '$')
        return false;
    const size_t n = std::strlen(out);
    if (n != hash.size())
        return false;
    unsigned char diff = 0;
    for (size_t i = 0; i < n; ++i)
        diff |= static_cast<unsigned char>(out[i] ^ hash[i]);
    return diff == 0;
}

int StoreUserHash(const std::string& user, const std::string& hash) {
    CQvHandleLoc loc;
    int rc = OpenUsers(loc);
    if (rc == 0)
        rc = loc.Treedb_InsertSubKey(user, 2);
    if (rc == 0)
        rc = loc.Treedb_ReopenSubKey(user, -1);
    if (rc == 0)
        rc = loc.Treedb_WriteKeyString("hash", hash);
    return rc;
}

std::string LoadUserHash(const std::string& user) {
    CQvHandleLoc loc;
    if (OpenUsers(loc) != 0 || loc.Treedb_ReopenSubKey(user, -1) != 0)
        return "";
    return loc.Treedb_GetPropertyString("hash", "");
}

int DeleteUser(const std::string& user) {
    CQvHandleLoc loc;
    int rc = OpenUsers(loc);
    if (rc == 0)
        rc = loc.Treedb_DeleteSubKey(user);
    return IsMissing(rc) ? 0 : rc;
}

}  // namespace console
