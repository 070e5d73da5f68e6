// Server: CivetWeb set up from HostConfig, the handler dispatch, the access log hooks, and the
// process-wide "stopping" state that handlers and the response writer consult.
#pragma once

#include <mutex>
#include <string>

#include "host/AccessLog.h"
#include "host/HostConfig.h"
#include "host/Request.h"
#include "host/Router.h"

struct mg_context;
struct mg_connection;

namespace wh {

// Marks the host as stopping and wakes every WaitStopping sleeper. Safe from any thread (not
// from a signal handler: the main thread calls it after the signal pipe wakes it).
void BeginStop();

// 1 once BeginStop has been called.
int IsStopping();

// Sleeps up to `milliseconds` (negative counts as 0); returns 1 at once when the host is or
// becomes stopping, 0 when the time ran out.
int WaitStopping(int milliseconds);

// Marks the stop as finished (every handler has returned) and wakes WaitStopped.
void EndStop();

// Waits up to `milliseconds` for EndStop; true when it came.
bool WaitStopped(int milliseconds);

// One per process (CivetWeb's start-up messages reach it through a process-wide pointer).
class Server {
public:
    Server(const HostConfig& config, const Router& router, AccessLog& log);
    ~Server();
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    // Starts listening and serving. False with `error` set (port taken, bad address...).
    bool Start(std::string& error);
    // The port actually listened on (the chosen one when the configured port was 0).
    int Port() const { return m_nPort; }
    // The plain port that redirects to HTTPS, or -1.
    int RedirectPort() const { return m_nRedirectPort; }
    // Stops serving: wakes event-stream handlers (BeginStop) and waits for every worker.
    void Stop();

private:
    static int Handle(mg_connection* conn, void* cbdata);
    static int BeginRequest(mg_connection* conn);
    static void EndRequest(const mg_connection* conn, int status);
    static int LogMessage(const mg_connection* conn, const char* message);
    static int InitSsl(void* sslCtx, void* userData);
    void ServeMetrics(mg_connection* conn);

    const HostConfig& m_config;
    const Router& m_router;
    AccessLog& m_log;
    HostShared m_shared;
    mg_context* m_ctx = nullptr;  // written by Start and Stop on the main thread only
    int m_nPort = 0;
    int m_nRedirectPort = -1;
    std::string m_strStaticHeaders;  // CivetWeb's additional_header for the files it serves

    std::mutex m_mutexMessages;  // guards m_strMessages and m_bStarting
    std::string m_strMessages;   // CivetWeb's messages while starting, for the error text
    std::string m_strTlsError;   // why the TLS context could not be set up (guarded as above)
    bool m_bStarting = false;
};

}  // namespace wh
