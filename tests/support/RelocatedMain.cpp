// Test main that reruns the test binary from a private installation tree.
//
// The library finds its installation directory from the running executable (/proc/self/exe), so
// tests of code that reads configuration, writes logs or keeps token files run from a copy of the
// test binary placed at <tmp>/bin/<name>. The first process builds the tree, runs the copy with
// WS_TEST_ROOT set to the tree, removes the tree afterwards (kept when WS_KEEP_TREE is set) and
// exits with the copy's status. Tests write their configuration files before the code under test
// first reads them.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "tests/support/TestTree.h"

int main(int argc, char** argv) {
    if (std::getenv("WS_TEST_ROOT") == nullptr) {
        std::string self = ws_test::SelfExe();
        std::string name = self.substr(self.rfind('/') + 1);
        ws_test::TempTree tree(name);
        std::string copy = tree.Path("bin/" + name);
        if (!ws_test::CopyExecutable(self, copy)) {
            std::fprintf(stderr, "cannot copy %s to %s\n", self.c_str(), copy.c_str());
            return 2;
        }
        ::setenv("WS_TEST_ROOT", tree.Root().c_str(), 1);
        std::vector<std::string> args(argv, argv + argc);
        args[0] = copy;
        pid_t pid = ws_test::Spawn(args, "", "");
        int status = 0;
        ::waitpid(pid, &status, 0);
        if (WIFEXITED(status))
            return WEXITSTATUS(status);
        return 128 + (WIFSIGNALED(status) ? WTERMSIG(status) : 0);
    }
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
