// webharbour: the web server process that loads libwebsession and the console's handler modules.
// This program reads the settings, refuses root, prepares the folders the library writes and
// folds standard output; then it loads lib/libwebharbour.so (host/Serve.cpp), which brings
// libwebsession and serves. Nothing of the library runs before the folders are ready.
//
// Exit status: 0 after a clean stop (SIGTERM or SIGINT), 1 when handlers did not return within
// 1.8 s of the stop signal, 2 for a bad command line or configuration, for a start as root
// without --allow-root, or for a folder the library writes that the serving user cannot write,
// 3 when a handler module (or lib/libwebharbour.so) cannot be loaded, 4 when the server cannot
// listen.
#include <dlfcn.h>
#include <signal.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "common/QvUtil.h"
#include "host/HostConfig.h"
#include "host/OutputFold.h"
#include "host/Prepare.h"
#include "host/Serve.h"

namespace {

// Runs before any shared library's initialiser: SIGTERM and SIGINT are blocked here, so every
// thread - the library's maintenance thread started at load and CivetWeb's workers - inherits the
// block and the signal stays pending until main takes it with sigtimedwait. A handler running
// on whichever thread the kernel picks would be deferred or lost under the thread sanitizer.
// The raw system call: the sanitizers' interceptors may not be ready this early.
void BlockStopSignals(int, char**, char**) {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGTERM);
    sigaddset(&set, SIGINT);
    ::syscall(SYS_rt_sigprocmask, SIG_BLOCK, &set, nullptr, _NSIG / 8);
}
__attribute__((section(".preinit_array"),
               used)) void (*const g_pBlockStopSignals)(int, char**, char**) = &BlockStopSignals;

int Fail(int status, const std::string& message) {
    std::fprintf(stderr, "webharbour: %s\n", message.c_str());
    std::fflush(stderr);
    return status;
}

void StopOutput() {
    wh::StopOutputFold();
}

int Run(int argc, char** argv) {
    std::vector<std::string> args(argv + 1, argv + argc);
    wh::CommandLine cmd;
    std::string error;
    if (!wh::ParseCommandLine(args, cmd, error)) {
        std::fputs(wh::UsageText(), stderr);
        return Fail(2, error);
    }
    if (cmd.help) {
        std::fputs(wh::UsageText(), stdout);
        return 0;
    }
    std::string install = CQvUtil::GetInstallPath();
    if (install.empty())
        return Fail(2, "cannot find the installation directory from /proc/self/exe");

    wh::HostConfig config;
    if (!wh::LoadHostConfig(install, install + "/webharbour/middle.ini", config, error))
        return Fail(2, error);
    if (cmd.port >= 0)
        config.port = cmd.port;
    wh::SetOutputFoldSeconds(config.stdoutFoldSeconds);
    // Before the library touches a file: not as root, and every folder it writes ready.
    if (!wh::CheckUser(cmd.allowRoot || config.allowRoot, error) ||
        !wh::PrepareFolders(wh::LibraryFolders(config), error))
        return Fail(2, error);
    // Only now the library: RTLD_NOW, so a missing symbol fails here and not on a request.
    const std::string core = install + "/lib/libwebharbour.so";
    void* lib = ::dlopen(core.c_str(), RTLD_NOW | RTLD_LOCAL);
    WhServeFn serve =
        lib != nullptr ? reinterpret_cast<WhServeFn>(::dlsym(lib, WH_SERVE_ENTRY)) : nullptr;
    if (serve == nullptr) {
        const char* why = ::dlerror();
        return Fail(3, "cannot load " + core + ": " + (why != nullptr ? why : "no entry point"));
    }
    const WhServeArgs serveArgs{&config, &StopOutput};
    return serve(&serveArgs);
}

}  // namespace

int main(int argc, char** argv) {
    // Lines printed before this (there are none of ours) are in the capture already; every
    // line, the library's too, passes through the fold.
    wh::StartOutputFold(60);
    int status = Run(argc, argv);
    wh::StopOutputFold();
    return status;
}
