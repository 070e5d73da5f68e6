// consoleuser: sets, checks and removes the console's log-in users (salted password hashes in
// the tree "saas", main key "consoleuser") of the installation this binary sits in.
#include <cstdio>
#include <cstring>
#include <string>

#include "console/ConsoleUsers.h"

namespace {

const char* const kUsage =
    "usage: consoleuser set NAME PASSWORD     store (or replace) NAME's password hash\n"
    "       consoleuser check NAME PASSWORD   exit 0 when the password is NAME's\n"
    "       consoleuser delete NAME           remove NAME\n"
    "A user logs in only when a login name NAME belongs to a company as well\n"
    "(bsctl tree set saas loginname NAME companyid string COMPANY).\n"
    "Exit status: 0 done, 1 refused or wrong, 2 bad arguments.\n";

}  // namespace

int main(int argc, char** argv) {
    if (argc < 3) {
        std::fputs(kUsage, stderr);
        return 2;
    }
    const std::string cmd = argv[1], name = argv[2];
    if (!console::ValidName(name)) {
        std::fprintf(stderr, "consoleuser: invalid name '%s' (1 to 64 letters, digits, _ - . @)\n",
                     name.c_str());
        return 2;
    }
    if (cmd == "set" && argc == 4) {
        if (argv[3][0] == '\0') {
            std::fputs("consoleuser: the password must not be empty\n", stderr);
            return 2;
        }
        const std::string hash = console::HashPassword(argv[3]);
        if (hash.empty()) {
            std::fputs("consoleuser: libcrypt could not hash the password\n", stderr);
            return 1;
        }
        int rc = console::StoreUserHash(name, hash);
        if (rc != 0) {
            std::fprintf(stderr, "consoleuser: the database refused (%d)\n", rc);
            return 1;
        }
        std::printf("consoleuser: password of %s stored\n", name.c_str());
        return 0;
    }
    if (cmd == "check" && argc == 4) {
        if (console::VerifyPassword(argv[3], console::LoadUserHash(name))) {
            std::printf("consoleuser: password of %s is right\n", name.c_str());
            return 0;
        }
        std::printf("consoleuser: wrong password or unknown user %s\n", name.c_str());
        return 1;
    }
    if (cmd == "delete" && argc == 3) {
        int rc = console::DeleteUser(name);
        if (rc != 0) {
            std::fprintf(stderr, "consoleuser: the database refused (%d)\n", rc);
            return 1;
        }
        std::printf("consoleuser: %s removed\n", name.c_str());
        return 0;
    }
    std::fputs(kUsage, stderr);
    return 2;
}
