// WhModule.h: the interface between webharbour and the handler modules it loads at start.
//
// A handler module is a shared library that exports one C entry point:
//
//     extern "C" int wh_module_register(WhRegistry* registry);
//
// webharbour loads every module listed in section [modules] of <install>/webharbour/middle.ini,
// e.g. "console=libconsole.so /console" (file relative to <install>/lib or absolute, then the URL
// prefix the module serves), and calls wh_module_register once, on the main thread, before it
// accepts connections. The module registers its handlers there with registry->addHandler and
// keeps the registry pointer if it needs the other calls later (it stays valid until the process
// ends). A non-zero result, or a module without the entry point, stops webharbour with an error.
//
//     static const WhRegistry* g_host = nullptr;
//
//     static int Login(st_wh_info* info, void* user) {
//         std::string callback;
//         std::map<std::string, std::string> params;
//         if (Web_SessionInit(info, callback, params, 0, 1, true) != 0) return 400;
//         ...answer through CBSWork...
//         return 0;
//     }
//
//     extern "C" WH_MODULE_EXPORT int wh_module_register(WhRegistry* reg) {
//         if (reg->apiVersion < WH_MODULE_API_VERSION) return -1;
//         g_host = reg;
//         return reg->addHandler(reg, "login", &Login, nullptr);  // serves <prefix>/login
//     }
//
// Handlers run on webharbour's worker threads, many at once; the record and everything it points
// to are valid only during the call. Answer through the record's callbacks (normally through
// CBSWork). When a handler returns without having answered at all, webharbour answers with an
// empty body and the status the handler returned (100..599), or 200 when it returned anything
// else. A chunked answer (event stream) that the handler leaves open is ended by webharbour.
#pragma once

#include <stdint.h>

#include "web/WhInfo.h"

#define WH_MODULE_API_VERSION 2u
#define WH_MODULE_ENTRY "wh_module_register"
#define WH_MODULE_EXPORT __attribute__((visibility("default")))

struct WhRegistry;

// A request handler: `info` is the filled request record, `userData` what was registered with it.
typedef int (*WhHandler)(st_wh_info* info, void* userData);

struct WhRegistry {
    // WH_MODULE_API_VERSION of the host; later versions only append members.
    uint32_t apiVersion;
    // The URL prefix this module serves, as configured ("/console"; "" for the root).
    const char* prefix;
    // The installation directory (<install>, without a trailing slash).
    const char* installPath;
    // Registers `handler` for a path below the module's prefix, given without leading slash:
    // "login" serves exactly <prefix>/login; "" serves <prefix> itself; a path ending in "/"
    // ("files/") serves everything below it (the longest matching registration wins). Only valid
    // inside wh_module_register. 0 on success, -1 for a null handler or a path registered twice.
    int (*addHandler)(struct WhRegistry* registry, const char* path, WhHandler handler,
                      void* userData);
    // 1 once webharbour has begun to stop (SIGTERM or SIGINT), else 0. Long-running handlers
    // (event streams) must return soon after it turns 1: webharbour waits for every handler.
    int (*isStopping)(void);
    // Sleeps up to `milliseconds`, returning at once when webharbour begins to stop. 1 when it
    // is stopping, 0 when the time ran out. The way for an event stream to pause between pieces.
    int (*waitStopping)(int milliseconds);
    // 1 while the request's answer can still reach the client; 0 once a write failed, the
    // stream was refused (too many event streams: the client got 503), the chunked body was
    // ended (closing piece written) or webharbour is stopping.
    // Event-stream handlers test it between pieces and return when it is 0.
    int (*isConnectionOk)(const st_wh_info* info);
    // The host's own bookkeeping for this registry; modules leave it alone.
    void* hostData;
    // Version 2 and later. Counts a refusal the module words itself on the host's monitoring
    // page (/metrics, webharbour_refusals_total): "verify_code", "script_filter",
    // "login_throttled", "login_failed"; any other name counts as "other". The library's own
    // refusals (session time-out, CSRF) are counted by the host without the module's help.
    void (*countRefusal)(const st_wh_info* info, const char* reason);
};

#ifdef __cplusplus
extern "C" {
#endif
// The entry point every module exports. 0 when the module is ready to serve.
typedef int (*WhModuleRegisterFn)(struct WhRegistry* registry);
#ifdef __cplusplus
}
#endif
