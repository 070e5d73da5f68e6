// Serve: the entry point of lib/libwebharbour.so, the serving half of webharbour. The program
// (host/main.cpp) reads the settings, refuses root, prepares the library's folders and only then
// loads this library, which brings libwebsession with it.
#pragma once

#include "host/HostConfig.h"

struct WhServeArgs {
    const wh::HostConfig* config;  // read, checked and prepared by the program
    void (*stopOutput)();          // ends the program's folded standard output (see OutputFold.h)
};

#define WH_SERVE_ENTRY "wh_serve"

// Serves until SIGTERM or SIGINT and ends the process with the exit status (0 after a clean
// stop, 1 when handlers held up the stop); returns only for a failure to start: 2 bad TLS files,
// 3 a module that cannot be loaded, 4 a port it cannot listen on, with a message on standard
// error.
extern "C" __attribute__((visibility("default"))) int wh_serve(const WhServeArgs* args);
typedef int (*WhServeFn)(const WhServeArgs* args);
