// Test support: temporary installation trees, copying and running executables, file helpers.
#include "tests/support/TestTree.h"

#include <fcntl.h>
#include <ftw.h>
#include <limits.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace ws_test {

namespace {

const char* const kTreeDirs[] = {"bin",         "lib",         "middle/Conf",        "middle/log",
                                 "middle/data", "middle/lang", "webharbour/hdoc/tmp"};

int RemoveOne(const char* path, const struct stat*, int, struct FTW*) {
    return ::remove(path);
}

}  // namespace

TempTree::TempTree(const std::string& prefix) {
    const char* tmp = std::getenv("TMPDIR");
    std::string pattern = std::string(tmp && *tmp ? tmp : "/tmp") + "/" + prefix + ".XXXXXX";
    std::vector<char> buf(pattern.begin(), pattern.end());
    buf.push_back('\0');
    if (!::mkdtemp(buf.data()))
        throw std::runtime_error("mkdtemp failed for " + pattern);
    char resolved[PATH_MAX];
    m_strRoot = ::realpath(buf.data(), resolved) ? resolved : buf.data();
    for (const char* d : kTreeDirs)
        MakeDirs(m_strRoot + "/" + d);
}

TempTree::~TempTree() {
    if (!std::getenv("WS_KEEP_TREE"))
        RemoveTree(m_strRoot);
}

std::string InstallRoot() {
    const char* root = std::getenv("WS_TEST_ROOT");
    return root ? root : "";
}

std::string SelfExe() {
    char buf[PATH_MAX] = {0};
    ssize_t n = ::readlink("/proc/self/exe", buf, sizeof(buf) - 1);
    if (n <= 0)
        return "";
    buf[n] = '\0';
    return buf;
}

bool MakeDirs(const std::string& path) {
    std::string cur;
    std::stringstream ss(path);
    std::string part;
    if (!path.empty() && path[0] == '/')
        cur = "/";
    while (std::getline(ss, part, '/')) {
        if (part.empty())
            continue;
        cur += part;
        if (::mkdir(cur.c_str(), 0755) != 0 && errno != EEXIST)
            return false;
        cur += "/";
    }
    return true;
}

bool CopyExecutable(const std::string& from, const std::string& to) {
    auto slash = to.rfind('/');
    if (slash != std::string::npos && !MakeDirs(to.substr(0, slash)))
        return false;
    std::ifstream in(from, std::ios::binary);
    std::ofstream out(to, std::ios::binary | std::ios::trunc);
    if (!in || !out)
        return false;
    out << in.rdbuf();
    out.close();
    return out.good() && ::chmod(to.c_str(), 0755) == 0;
}

pid_t Spawn(const std::vector<std::string>& argv, const std::string& out, const std::string& err,
            const std::function<void()>& inChild) {
    std::vector<char*> args;
    for (const auto& a : argv)
        args.push_back(const_cast<char*>(a.c_str()));
    args.push_back(nullptr);
    pid_t pid = ::fork();
    if (pid != 0)
        return pid;
    int o = out.empty() ? 1 : ::open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    ::dup2(o, 1);
    if (!err.empty())
        ::dup2(err == out ? o : ::open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644), 2);
    if (inChild)
        inChild();
    ::execv(args[0], args.data());
    ::_exit(127);
}

std::string RunAndCapture(const std::string& exe, const std::vector<std::string>& args, int* status,
                          void (*inChild)()) {
    int fds[2];
    if (::pipe(fds) != 0) {
        if (status)
            *status = -1;
        return "";
    }
    std::vector<std::string> argv{exe};
    argv.insert(argv.end(), args.begin(), args.end());
    pid_t pid = Spawn(argv, "", "", [&] {
        ::dup2(fds[1], 1);
        ::close(fds[0]);
        ::close(fds[1]);
        if (inChild)
            inChild();
    });
    ::close(fds[1]);
    std::string text;
    char buf[4096];
    ssize_t n;
    while ((n = ::read(fds[0], buf, sizeof(buf))) > 0)
        text.append(buf, static_cast<size_t>(n));
    ::close(fds[0]);
    int st = 0;
    if (pid > 0)
        ::waitpid(pid, &st, 0);
    if (status)
        *status = pid > 0 && WIFEXITED(st) ? WEXITSTATUS(st) : -1;
    return text;
}

void WriteFile(const std::string& path, const std::string& content) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << content;
}

std::string ReadFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

bool FileExists(const std::string& path) {
    struct stat st;
    return ::stat(path.c_str(), &st) == 0;
}

void RemoveTree(const std::string& path) {
    if (path.empty() || path == "/")
        return;
    ::nftw(path.c_str(), RemoveOne, 16, FTW_DEPTH | FTW_PHYS);
}

pid_t ForkRun(const std::function<int()>& child) {
    pid_t pid = ::fork();
    if (pid == 0)
        _exit(child());
    return pid;
}

int WaitExit(pid_t pid) {
    int status = 0;
    ::waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace ws_test
