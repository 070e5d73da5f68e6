// Prepare: the root refusal and the folders the library writes.
#include "host/Prepare.h"

#include <dirent.h>
#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace wh {

namespace {

std::string Octal(unsigned mode) {
    char buf[8];
    std::snprintf(buf, sizeof(buf), "%04o", mode & 07777);
    return buf;
}

std::string FixHint(const std::string& path, unsigned mode) {
    return "; make it belong to that user with mode " + Octal(mode) + ", e.g. chown " +
           EffectiveUserName() + " " + path + " && chmod " + Octal(mode) + " " + path;
}

// mkdir -p: the missing parents get 0755 (they hold the document tree and the configuration,
// which others read), the folder itself `mode`.
bool MakeFolder(const std::string& path, unsigned mode, std::string& error) {
    for (size_t slash = path.find('/', 1);; slash = path.find('/', slash + 1)) {
        const bool last = slash == std::string::npos;
        const std::string part = last ? path : path.substr(0, slash);
        if (::mkdir(part.c_str(), last ? mode : 0755) != 0 && errno != EEXIST) {
            error = "cannot create " + part + ": " + std::strerror(errno);
            return false;
        }
        if (last)
            break;
    }
    // mkdir honours the umask; the mode asked for is the mode wanted.
    ::chmod(path.c_str(), mode);
    return true;
}

bool Writable(const std::string& path, bool directory) {
    return ::faccessat(AT_FDCWD, path.c_str(), directory ? (R_OK | W_OK | X_OK) : (R_OK | W_OK),
                       AT_EACCESS) == 0;
}

bool CheckBelow(const std::string& dir, int depth, const WritableFolder& f, std::string& error) {
    DIR* d = ::opendir(dir.c_str());
    if (d == nullptr)
        return true;  // reported by the caller's own check
    bool ok = true;
    while (dirent* e = ::readdir(d)) {
        if (std::strcmp(e->d_name, ".") == 0 || std::strcmp(e->d_name, "..") == 0)
            continue;
        const std::string path = dir + "/" + e->d_name;
        struct stat st;
        if (::lstat(path.c_str(), &st) != 0 || S_ISLNK(st.st_mode))
            continue;
        const bool isDir = S_ISDIR(st.st_mode);
        if (!Writable(path, isDir)) {
            error = path + " (" + f.reason + ") is not writable by user " + EffectiveUserName() +
                    "; give it to that user, e.g. chown -R " + EffectiveUserName() + " " + f.path;
            ok = false;
            break;
        }
        if (isDir && depth > 1 && !CheckBelow(path, depth - 1, f, error)) {
            ok = false;
            break;
        }
    }
    ::closedir(d);
    return ok;
}

}  // namespace

std::string EffectiveUserName() {
    const uid_t uid = ::geteuid();
    struct passwd pw;
    struct passwd* found = nullptr;
    char buf[4096];
    if (::getpwuid_r(uid, &pw, buf, sizeof(buf), &found) == 0 && found != nullptr)
        return found->pw_name;
    return "uid " + std::to_string(uid);
}

std::vector<WritableFolder> LibraryFolders(const HostConfig& config) {
    std::vector<WritableFolder> folders = {
        {config.docRoot + "/tmp", 0700, false, "the CSRF token files"},
        {config.logDir, 0750, true, "the log files"},
    };
    const char* engine = std::getenv("BSAPI_ENGINE");
    if (engine == nullptr || *engine == '\0' || std::strcmp(engine, "sqlite") == 0) {
        const char* root = std::getenv("BSAPI_DATA_DIR");
        folders.push_back({root != nullptr && *root != '\0' ? std::string(root)
                                                            : config.installPath + "/middle/data",
                           0750, true, "the embedded database's files"});
    }
    return folders;
}

bool CheckUser(bool allowRoot, std::string& error) {
    if (::geteuid() != 0 || allowRoot)
        return true;
    error =
        "refusing to run as root: a web server that a browser can reach runs as an "
        "unprivileged user. Start it as such a user (e.g. runuser -u webharbour -- "
        "<install>/bin/webharbour, or through the systemd unit); --allow-root or [main] "
        "AllowRoot=1 in webharbour/middle.ini overrides this";
    return false;
}

bool PrepareFolders(const std::vector<WritableFolder>& folders, std::string& error) {
    for (const WritableFolder& f : folders) {
        struct stat st;
        if (::stat(f.path.c_str(), &st) != 0) {
            if (errno != ENOENT) {
                error = "cannot look at " + f.path + " (" + f.reason + "): " + std::strerror(errno);
                return false;
            }
            if (!MakeFolder(f.path, f.mode, error))
                return false;
            if (::stat(f.path.c_str(), &st) != 0) {
                error = "cannot look at " + f.path + ": " + std::strerror(errno);
                return false;
            }
        }
        if (!S_ISDIR(st.st_mode)) {
            error = f.path + " (" + f.reason + ") is not a folder";
            return false;
        }
        // Our own folder without owner rights (the library creates hdoc/tmp with mode 070):
        // its owner may give them back.
        if (st.st_uid == ::geteuid() && (st.st_mode & 0700) != 0700)
            ::chmod(f.path.c_str(), f.mode);
        if (!Writable(f.path, true)) {
            error = f.path + " (" + f.reason + ") is not writable by user " + EffectiveUserName() +
                    FixHint(f.path, f.mode);
            return false;
        }
        if (f.checkFiles && !CheckBelow(f.path, 3, f, error))
            return false;
    }
    return true;
}

}  // namespace wh
