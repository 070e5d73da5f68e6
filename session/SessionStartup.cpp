// Session_app_init and Session_InitData: the maintenance thread started when the library loads.
//
// This file is a library part of its own (ws_startup), linked into libwebsession.so after the
// session part, so the thread is started after gw_webSession, the token statics and
// g_WebTokenColl (session/Globals.cpp) have been built and before the database pools and the
// other parts' objects; its first step, a one-second sleep, lets those finish. Unit tests of
// the parts link the archives without this part and so run without a maintenance thread.
#include "session/SessionStartup.h"

#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstring>

#include "protect/WebToken.h"
#include "session/SessionApi.h"
#include "session/WebSession.h"

// Defined with the objects they guard (session/Globals.cpp, db/GrossHandlePool.cpp).
extern std::atomic<bool> g_bSessionGlobalsBuilt;
extern std::atomic<bool> g_bGrossHandlePoolBuilt;

namespace {

std::atomic<bool> g_bInitDataDone{false};

}  // namespace

void* Session_InitData(void* /*unused*/) {
    // Let the host finish loading the library (and its later global objects) first.
    ::usleep(1000000);
    // The session and token objects and the handle pools are certainly built by now; waiting
    // for their marks also makes that order visible to the thread (and to the thread sanitizer).
    while (!g_bSessionGlobalsBuilt.load(std::memory_order_acquire) ||
           !g_bGrossHandlePoolBuilt.load(std::memory_order_acquire)) {
        ::usleep(10000);
    }
    std::printf("Session Begin InitData\n");
    try {
        gw_webSession.InitData();
    } catch (...) {
        // The table stays as it is; requests keep working on what it holds.
    }
    try {
        g_WebTokenColl.InitData();
    } catch (...) {
    }
    std::printf("Session End InitData\n");
    std::fflush(stdout);
    g_bInitDataDone.store(true, std::memory_order_release);
    try {
        g_WebTokenColl.TimerClearToken();
    } catch (...) {
        // Only an exhausted memory ends the sweeping.
    }
    return nullptr;
}

int Session_app_init() {
    std::printf("Session_InitData app_init\n");
    pthread_t thread;
    const int rc = ::pthread_create(&thread, nullptr, &Session_InitData, nullptr);
    if (rc != 0) {
        std::printf("InitData can't create thread: %s\n", std::strerror(rc));
        std::fflush(stdout);
        return rc;
    }
    ::pthread_detach(thread);
    std::printf("InitData create thread success:\n");
    std::fflush(stdout);
    return 0;
}

bool Session_InitDataDone() {
    return g_bInitDataDone.load(std::memory_order_acquire);
}

namespace {

// 4. in the load order of the library's objects (see session/Globals.cpp).
[[maybe_unused]] const int g_nAppInit = Session_app_init();

}  // namespace
