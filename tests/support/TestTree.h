// Test support: private installation trees under a temporary directory, and small file helpers.
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

namespace ws_test {

// A fresh directory tree laid out like an installation (bin/, lib/, middle/Conf, middle/log,
// middle/data, middle/lang, webharbour/hdoc/tmp) under a new temporary directory. The tree is
// removed by the destructor unless the environment variable WS_KEEP_TREE is set.
class TempTree {
public:
    explicit TempTree(const std::string& prefix = "wstree");
    ~TempTree();
    TempTree(const TempTree&) = delete;
    TempTree& operator=(const TempTree&) = delete;

    const std::string& Root() const { return m_strRoot; }
    std::string Path(const std::string& relative) const { return m_strRoot + "/" + relative; }

private:
    std::string m_strRoot;
};

// The installation root of a test binary linked with the relocating main (ws_test RELOCATED):
// the directory above the bin/ that the running copy sits in. Empty for other binaries.
std::string InstallRoot();

// Copies the executable at `from` to `to` (mode 0755), creating missing parent directories.
bool CopyExecutable(const std::string& from, const std::string& to);

// Runs `exe` with `args` and returns what it printed on standard output; `status` receives the
// exit status (or -1 when it could not be run). `inChild` runs in the child before the program
// (e.g. to drop privileges).
std::string RunAndCapture(const std::string& exe, const std::vector<std::string>& args,
                          int* status = nullptr, void (*inChild)() = nullptr);

// Starts `argv` (argv[0] the program's path) with standard output and error written to the
// files `out` and `err` (emptied first; the same name takes both; "" keeps the stream) after
// `inChild` ran in the child. The child's pid, -1 when it could not be started.
pid_t Spawn(const std::vector<std::string>& argv, const std::string& out, const std::string& err,
            const std::function<void()>& inChild = nullptr);

// Runs `child` in a forked process, which exits with its result; WaitExit waits for that process
// and gives its exit status (-1 when it did not exit normally).
pid_t ForkRun(const std::function<int()>& child);
int WaitExit(pid_t pid);

void WriteFile(const std::string& path, const std::string& content);
std::string ReadFile(const std::string& path);
bool FileExists(const std::string& path);
bool MakeDirs(const std::string& path);
void RemoveTree(const std::string& path);

// The resolved path of the running executable.
std::string SelfExe();

}  // namespace ws_test
