// The console's user store: password hashing through libcrypt and the "saas\consoleuser" keys.
#include "console/ConsoleUsers.h"

#include <crypt.h>

#include <cctype>
#include <cstring>
#include <memory>

#include "bsapi/bsapi.h"

namespace console {

namespace {

// Result codes of the tree database meaning "this key does not exist".
bool IsMissing(int rc) {
    return rc == 28 || rc == 40 || rc == 169 || rc == 176;
}

// One tree handle per call, straight on the database client: consoleuser runs without the web
// library (and its start-up thread), and log-ins are too rare to want a pooled handle.
class CUserHandle {
public:
    ~CUserHandle() {
        if (m_h != BS_INVALID_HANDLE)
            bs_close_handle(m_h);
    }
    // Opens "saas\consoleuser" (created on a fresh installation), or the user's key below it.
    int Open(const std::string& user) {
        return bs_treedb_open(m_h, "consoleuser", user.c_str(), "", BS_OPEN_CREATE, "saas",
                              "127.0.0.1", 8123);
    }
    void*& Get() { return m_h; }

private:
    void* m_h = BS_INVALID_HANDLE;
};

}  // namespace

bool ValidName(const std::string& name) {
    if (name.empty() || name.size() > 64 || name[0] == '.')
        return false;
    for (unsigned char c : name) {
        if (!std::isalnum(c) && c != '_' && c != '-' && c != '.' && c != '@')
            return false;
    }
    return true;
}

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
        const char* out =
            crypt_rn(password.c_str(), setting, data.get(), static_cast<int>(sizeof(crypt_data)));
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
    // crypt_rn, not crypt_r: it answers a failure with null rather than a "*" text, and the
    // address sanitizer's crypt_r wrapper cannot reach libcrypt when libcrypt arrives with a
    // module loaded after start (the call would jump to address 0).
    const char* out =
        crypt_rn(password.c_str(), hash.c_str(), data.get(), static_cast<int>(sizeof(crypt_data)));
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
    CUserHandle h;
    int rc = h.Open("");
    if (rc == 0)
        rc = bs_treedb_insert_subkey(h.Get(), user.c_str(), BS_INSERT_ACCEPT_EXISTING);
    if (rc == 0)
        rc = bs_treedb_open_subkey(h.Get(), user.c_str(), BS_OPEN_CREATE);
    if (rc == 0)
        rc = bs_treedb_insert_property(h.Get(), "hash", tarn::VariableData(hash), true);
    return rc;
}

std::string LoadUserHash(const std::string& user) {
    CUserHandle h;
    tarn::VariableData value;
    if (h.Open(user) != 0 || bs_treedb_get_property(h.Get(), "hash", value) != 0 ||
        value.GetType() != 1)
        return "";
    return value.GetText();
}

int DeleteUser(const std::string& user) {
    CUserHandle h;
    int rc = h.Open("");
    if (rc == 0)
        rc = bs_treedb_delete_subkey(h.Get(), user.c_str());
    return IsMissing(rc) ? 0 : rc;
}

}  // namespace console
