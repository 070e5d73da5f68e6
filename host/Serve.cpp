// The serving half of webharbour, in lib/libwebharbour.so: CivetWeb, the handler modules and
// the stop. webharbour loads it - and with it libwebsession - only after it has checked the user
// and prepared the library's folders (host/main.cpp).
#include "host/Serve.h"

#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>

#include "host/AccessLog.h"
#include "host/Request.h"
#include "host/Router.h"
#include "host/Server.h"
#include "host/Tls.h"

namespace wh {

namespace {

const int kStopGraceMs = 1800;  // the stop must be over within two seconds of the signal

volatile sig_atomic_t g_nStopSignal = 0;  // set by the fallback handler

void OnStopSignal(int) {
    g_nStopSignal = 1;
}

bool InstallSignals(std::string& error) {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGTERM);
    sigaddset(&set, SIGINT);
    // Blocked already by the program before any library ran (host/main.cpp); said again so
    // that the sanitizers' view of the mask agrees.
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

}  // namespace

}  // namespace wh

int wh_serve(const WhServeArgs* args) {
    using namespace wh;
    const HostConfig* config = args->config;
    std::string error;
    // HTTPS asked for is HTTPS or no start at all: never plain HTTP in its place.
    if (config->tls.Enabled() &&
        (!LoadTlsGlue(config->installPath, error) || !CheckTlsFiles(config->tls, error)))
        return Fail(2, error);
    if (!InstallSignals(error))
        return Fail(2, error);

    AccessLog log;
    if (!log.Open(config->logDir, config->accessLog, config->accessLogMaxBytes, error))
        return Fail(2, error);

    Router router;
    WhRegistry services{};
    services.isStopping = &IsStopping;
    services.waitStopping = &WaitStopping;
    services.isConnectionOk = &ConnectionOk;
    services.countRefusal = &CountModuleRefusal;
    if (!router.LoadModules(*config, services, error))
        return Fail(3, error);

    Server server(*config, router, log);
    if (!server.Start(error))
        return Fail(4, error);
    std::printf("webharbour: listening on port %d%s, serving %s\n", server.Port(),
                config->tls.Enabled() ? " (HTTPS)" : "", config->docRoot.c_str());
    if (server.RedirectPort() >= 0)
        std::printf("webharbour: port %d redirects to HTTPS\n", server.RedirectPort());
    std::fflush(stdout);

    WaitForStopSignal();
    std::printf("webharbour: stopping\n");
    std::fflush(stdout);
    // A handler that ignores the stop (blocked somewhere it cannot be woken) would hold mg_stop
    // for ever: after the grace time the process ends without waiting for it.
    std::thread watchdog([&log, args] {
        if (WaitStopped(kStopGraceMs))
            return;
        log.Flush(false);
        args->stopOutput();
        std::fprintf(stderr,
                     "webharbour: handlers still running %d ms after the stop; exiting without "
                     "them\n",
                     kStopGraceMs);
        std::fflush(stderr);
        std::_Exit(1);
    });
    server.Stop();
    EndStop();
    watchdog.join();
    log.Close();
    std::printf("webharbour: stopped\n");
    args->stopOutput();
    std::fflush(stderr);
    // The library's maintenance thread is detached and never ends; running the library's
    // static destructors under it could crash the exit. Everything of ours is written out.
    std::_Exit(0);
}
