// webharbour: the web server process that loads libwebsession and the console's handler modules.
//
// Exit status: 0 after a clean stop (SIGTERM or SIGINT), 1 when handlers did not return within
// 1.8 s of the stop signal, 2 for a bad command line or configuration, for a start as root
// without --allow-root, or for a folder the library writes that the serving user cannot write,
// 3 when a handler module cannot be loaded, 4 when the server cannot listen.
#include <signal.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "common/QvUtil.h"
#include "host/AccessLog.h"
#include "host/HostConfig.h"
#include "host/OutputFold.h"
#include "host/Prepare.h"
#include "host/Request.h"
#include "host/Router.h"
#include "host/Server.h"
#include "host/Tls.h"

namespace {

const int kStopGraceMs = 1800;  // the stop must be over within two seconds of the signal

volatile sig_atomic_t g_nStopSignal = 0;  // set by the fallback handler

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

void OnStopSignal(int) {
    g_nStopSignal = 1;
}

bool InstallSignals(std::string& error) {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGTERM);
    sigaddset(&set, SIGINT);
    // Blocked already (above); said again so the sanitizers' view of the mask agrees.
    ::pthread_sigmask(SIG_BLOCK, &set, nullptr);
    // Should a thread have been started with the signals open after all, the signal must still
    // stop us cleanly rather than kill the process: the handler leaves a flag main looks at.
    struct sigaction sa {};
    sa.sa_handler = &OnStopSignal;
    sigemptyset(&sa.sa_mask);
    sa.sa_flags = SA_RESTART;
    if (::sigaction(SIGTERM, &sa, nullptr) != 0 || ::sigaction(SIGINT, &sa, nullptr) != 0) {
        error = "cannot install the signal handlers";
        return false;
    }
    ::signal(SIGPIPE, SIG_IGN);  // a client gone mid-answer is a failed write, not our end
    return true;
}

void WaitForStopSignal() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGTERM);
    sigaddset(&set, SIGINT);
    const timespec tick{0, 100 * 1000 * 1000};
    while (g_nStopSignal == 0) {
        if (::sigtimedwait(&set, nullptr, &tick) > 0)
            return;
    }
}

int Fail(int status, const std::string& message) {
    std::fprintf(stderr, "webharbour: %s\n", message.c_str());
    std::fflush(stderr);
    return status;
}

int Serve(int argc, char** argv);

}  // namespace

int main(int argc, char** argv) {
    // The library's lines printed at load are in the capture already; they pass through the
    // fold like every later one.
    wh::StartOutputFold(60);
    int status = Serve(argc, argv);
    wh::StopOutputFold();
    return status;
}

namespace {

int Serve(int argc, char** argv) {
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
    // HTTPS asked for is HTTPS or no start at all: never plain HTTP in its place.
    if (config.tls.Enabled() &&
        (!wh::LoadTlsGlue(config.installPath, error) || !wh::CheckTlsFiles(config.tls, error)))
        return Fail(2, error);
    if (!InstallSignals(error))
        return Fail(2, error);

    wh::AccessLog log;
    if (!log.Open(config.logDir, config.accessLog, config.accessLogMaxBytes, error))
        return Fail(2, error);

    wh::Router router;
    WhRegistry services{};
    services.isStopping = &wh::IsStopping;
    services.waitStopping = &wh::WaitStopping;
    services.isConnectionOk = &wh::ConnectionOk;
    services.countRefusal = &wh::CountModuleRefusal;
    if (!router.LoadModules(config, services, error))
        return Fail(3, error);

    wh::Server server(config, router, log);
    if (!server.Start(error))
        return Fail(4, error);
    std::printf("webharbour: listening on port %d%s, serving %s\n", server.Port(),
                config.tls.Enabled() ? " (HTTPS)" : "", config.docRoot.c_str());
    if (server.RedirectPort() >= 0)
        std::printf("webharbour: port %d redirects to HTTPS\n", server.RedirectPort());
    std::fflush(stdout);

    WaitForStopSignal();
    std::printf("webharbour: stopping\n");
    std::fflush(stdout);
    // A handler that ignores the stop (blocked somewhere it cannot be woken) would hold mg_stop
    // for ever: after the grace time the process ends without waiting for it.
    std::thread watchdog([&log] {
        if (wh::WaitStopped(kStopGraceMs))
            return;
        log.Flush(false);
        wh::StopOutputFold();
        std::fprintf(stderr,
                     "webharbour: handlers still running %d ms after the stop; exiting without "
                     "them\n",
                     kStopGraceMs);
        std::fflush(stderr);
        std::_Exit(1);
    });
    server.Stop();
    wh::EndStop();
    watchdog.join();
    log.Close();
    std::printf("webharbour: stopped\n");
    wh::StopOutputFold();
    std::fflush(stderr);
    // The library's maintenance thread is detached and never ends; running the library's
    // static destructors under it could crash the exit. Everything of ours is written out.
    std::_Exit(0);
}

}  // namespace
