// Server: CivetWeb's options, the dispatch of handler requests, access logging, the stop and the
// stopping flag with the condition that wakes event-stream handlers at shutdown.
#include "host/Server.h"

#include <civetweb.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <thread>
#include <vector>

#include "db/PoolStats.h"
#include "host/Metrics.h"
#include "host/Tls.h"
#include "session/SessionStats.h"

namespace wh {

namespace {

std::atomic<bool> g_bStopping{false};  // read without the lock on every write
std::atomic<bool> g_bStopped{false};
std::mutex g_mutexStop;  // guards the waits below together with g_bStopping and g_bStopped
std::condition_variable g_condStop;

}  // namespace

void BeginStop() {
    {
        std::lock_guard<std::mutex> lock(g_mutexStop);
        g_bStopping.store(true);
    }
    g_condStop.notify_all();
}

int IsStopping() {
    return g_bStopping.load() ? 1 : 0;
}

int WaitStopping(int milliseconds) {
    if (milliseconds < 0)
        milliseconds = 0;
    std::unique_lock<std::mutex> lock(g_mutexStop);
    bool stopped = g_condStop.wait_for(lock, std::chrono::milliseconds(milliseconds),
                                       [] { return g_bStopping.load(); });
    return stopped ? 1 : 0;
}

void EndStop() {
    {
        std::lock_guard<std::mutex> lock(g_mutexStop);
        g_bStopped.store(true);
    }
    g_condStop.notify_all();
}

bool WaitStopped(int milliseconds) {
    std::unique_lock<std::mutex> lock(g_mutexStop);
    return g_condStop.wait_for(lock, std::chrono::milliseconds(milliseconds),
                               [] { return g_bStopped.load(); });
}

namespace {

Server* g_pServer = nullptr;  // set by Start before CivetWeb runs, cleared by the destructor

// Per worker thread: when the current request arrived and how many bytes the host wrote for it
// (-1 while CivetWeb itself answers, e.g. static files).
thread_local std::chrono::steady_clock::time_point t_start;
thread_local long long t_bytes = -1;
thread_local Metrics::Kind t_kind = Metrics::kStatic;

const char* const kMetricsPath = "/metrics";

// Opens and closes a connection to our own listening socket (the loopback address when we listen
// on every interface).
void KnockOnListener(const std::string& address, int port) {
    int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return;
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_port = htons(static_cast<uint16_t>(port));
    if (address.empty() || ::inet_pton(AF_INET, address.c_str(), &addr.sin_addr) != 1)
        addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    int rc = ::connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr));
    (void)rc;
    ::close(fd);
}

// The host name of a Host header without its port, when it is a plain name or address;
// "" for anything else (a redirect must not send the browser somewhere a header made up).
std::string HostName(const std::string& header) {
    std::string host = header;
    if (!host.empty() && host[0] == '[') {
        std::string::size_type close = host.find(']');
        if (close == std::string::npos)
            return "";
        host = host.substr(0, close + 1);
        return host.find_first_not_of("[]:.0123456789abcdefABCDEF") == std::string::npos ? host
                                                                                         : "";
    }
    host = host.substr(0, host.find(':'));
    if (host.empty() || host.size() > 253 ||
        host.find_first_not_of(
            "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789.-") !=
            std::string::npos)
        return "";
    return host;
}

bool IsHiddenPath(const char* path) {
    // hdoc/tmp holds the CSRF token files: they are for the server, never for a browser.
    return std::strcmp(path, "/tmp") == 0 || std::strncmp(path, "/tmp/", 5) == 0;
}

}  // namespace

Server::Server(const HostConfig& config, const Router& router, AccessLog& log)
    : m_config(config), m_router(router), m_log(log) {
    m_shared.config = &m_config;
    m_shared.tls = config.tls.Enabled();
    std::string lines = "X-Content-Type-Options: nosniff\r\n";
    if (!config.contentSecurityPolicy.empty())
        lines += "Content-Security-Policy: " + config.contentSecurityPolicy + "\r\n";
    if (!config.referrerPolicy.empty())
        lines += "Referrer-Policy: " + config.referrerPolicy + "\r\n";
    // CivetWeb adds Strict-Transport-Security to its own answers itself.
    m_strStaticHeaders = lines.substr(0, lines.size() - 2);
    m_shared.headerLines = lines;
    if (m_shared.tls && config.tls.hstsMaxAge > 0)
        m_shared.hstsLine =
            "Strict-Transport-Security: max-age=" + std::to_string(config.tls.hstsMaxAge) + "\r\n";
}

Server::~Server() {
    Stop();
    if (g_pServer == this)
        g_pServer = nullptr;
}

bool Server::Start(std::string& error) {
    g_pServer = this;
    const std::string address = m_config.listenAddress.empty() ? "" : m_config.listenAddress + ":";
    std::string ports = address + std::to_string(m_config.port);
    if (m_shared.tls) {
        ports += "s";
        if (m_config.tls.redirectPort >= 0)
            ports += "," + address + std::to_string(m_config.tls.redirectPort);
    }
    std::string threads = std::to_string(m_config.workerThreads);
    std::string keepMs = std::to_string(m_config.keepAliveMs);
    std::string timeoutMs = std::to_string(m_config.requestTimeoutMs);
    std::string hsts = std::to_string(m_config.tls.hstsMaxAge);
    std::vector<const char*> options = {
        "listening_ports", ports.c_str(), "document_root", m_config.docRoot.c_str(), "num_threads",
        threads.c_str(),
        // Without it every small answer waits for the delayed ACK of the previous one.
        "tcp_nodelay", "1", "enable_keep_alive", m_config.keepAliveMs > 0 ? "yes" : "no",
        "keep_alive_timeout_ms", keepMs.c_str(), "request_timeout_ms", timeoutMs.c_str(),
        "enable_directory_listing", "no", "additional_header", m_strStaticHeaders.c_str()};
    if (m_shared.tls) {
        // 4: TLS 1.2 and later; the context callback below sets the same floor itself.
        options.insert(options.end(), {"ssl_protocol_version", "4"});
        if (m_config.tls.hstsMaxAge > 0)
            options.insert(options.end(), {"strict_transport_security_max_age", hsts.c_str()});
    }
    options.push_back(nullptr);
    mg_callbacks callbacks;
    std::memset(&callbacks, 0, sizeof(callbacks));
    callbacks.begin_request = &Server::BeginRequest;
    callbacks.end_request = &Server::EndRequest;
    callbacks.log_message = &Server::LogMessage;
    if (m_shared.tls)
        callbacks.init_ssl = &Server::InitSsl;
    {
        std::lock_guard<std::mutex> lock(m_mutexMessages);
        m_bStarting = true;
        m_strMessages.clear();
    }
    m_ctx = mg_start(&callbacks, this, options.data());
    std::string messages;
    {
        std::lock_guard<std::mutex> lock(m_mutexMessages);
        m_bStarting = false;
        messages.swap(m_strMessages);
        if (!m_strTlsError.empty())
            messages = m_strTlsError;
    }
    if (m_ctx == nullptr) {
        error = "cannot serve on " + ports + ": " +
                (messages.empty() ? std::string("the web server did not start") : messages);
        return false;
    }
    mg_server_port ports_info[4];
    int n = mg_get_server_ports(m_ctx, 4, ports_info);
    m_nPort = m_config.port;
    for (int i = n - 1; i >= 0; --i) {
        if (m_shared.tls && !ports_info[i].is_ssl)
            m_nRedirectPort = ports_info[i].port;
        else
            m_nPort = ports_info[i].port;
    }
    m_shared.httpsPort = m_nPort;
    mg_set_request_handler(m_ctx, "/tmp", &Server::Handle, this);
    mg_set_request_handler(m_ctx, kMetricsPath, &Server::Handle, this);
    for (const std::string& mount : m_router.MountPoints())
        mg_set_request_handler(m_ctx, mount.c_str(), &Server::Handle, this);
    return true;
}

void Server::Stop() {
    if (m_ctx == nullptr)
        return;
    BeginStop();  // event-stream handlers waiting in WaitStopping return now
    // CivetWeb's listening thread looks at its stop flag only between polls of up to two
    // seconds; a connection of our own ends its poll at once. Keep knocking until it is gone.
    std::atomic<bool> stopped{false};
    std::thread knocker([this, &stopped] {
        while (!stopped.load()) {
            KnockOnListener(m_config.listenAddress, m_nPort);
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
        }
    });
    mg_stop(m_ctx);
    stopped.store(true);
    knocker.join();
    m_ctx = nullptr;
}

int Server::Handle(mg_connection* conn, void* cbdata) {
    Server* self = static_cast<Server*>(cbdata);
    const mg_request_info* ri = mg_get_request_info(conn);
    const char* path = ri->local_uri != nullptr ? ri->local_uri : "/";
    RequestCtx ctx;
    if (std::strcmp(path, kMetricsPath) == 0) {
        t_kind = Metrics::kMetricsPage;
        self->ServeMetrics(conn);
        return 200;
    }
    if (IsHiddenPath(path)) {
        FillRecord(ctx, conn, &self->m_shared);
        SendSimple(ctx, 404, "not found\n", false);
        t_bytes = static_cast<long long>(ctx.bytesOut);
        return FinishRequest(ctx, 404);
    }
    const Route* route = self->m_router.Find(path);
    if (route == nullptr)
        return 0;  // not a handler path: CivetWeb serves it from hdoc/ (or answers 404)
    t_kind = Metrics::kHandler;
    FillRecord(ctx, conn, &self->m_shared);
    int status = 0;
    int body = ReadRequestBody(ctx);
    if (body == 413) {
        ProcessMetrics().CountRefusal(kBodyTooLarge);
        // Keep-alive is switched off so that CivetWeb does not read the refused body to its end.
        SendSimple(
            ctx, 413,
            "request body larger than " + std::to_string(self->m_config.maxBodyBytes) + " bytes\n",
            true);
        status = FinishRequest(ctx, 413);
    } else if (body != 0) {
        SendSimple(ctx, 400, "incomplete request body\n", true);
        status = FinishRequest(ctx, 400);
    } else {
        int result = 0;
        try {
            result = route->handler(&ctx.info, route->userData);
        } catch (...) {
            // A handler's exception must not end the process; the client gets a 500 when it
            // has not seen a head yet, a closed connection otherwise.
            std::fprintf(stderr, "webharbour: a handler of module \"%s\" threw on %s\n",
                         route->module.c_str(), path);
            if (!ctx.headSent)
                SendSimple(ctx, 500, "internal error\n", true);
            ctx.broken = true;
            result = 500;
        }
        status = FinishRequest(ctx, result);
    }
    t_bytes = static_cast<long long>(ctx.bytesOut);
    return status;
}

int Server::BeginRequest(mg_connection* conn) {
    t_start = std::chrono::steady_clock::now();
    t_bytes = -1;
    t_kind = Metrics::kStatic;
    Server* self = g_pServer;
    const mg_request_info* ri = mg_get_request_info(conn);
    if (self == nullptr || !self->m_shared.tls || ri == nullptr || ri->is_ssl)
        return 0;  // CivetWeb goes on: routing happens in Handle
    // The plain port of an HTTPS server only sends the browser over to HTTPS.
    RequestCtx ctx;
    FillRecord(ctx, conn, &self->m_shared);
    std::string host = HostName(ctx.head.host);
    if (host.empty()) {
        SendSimple(ctx, 400, "a request needs a valid Host header\n", true);
        return FinishRequest(ctx, 400);
    }
    // The same path and query on HTTPS, every byte a header could not carry escaped.
    std::string target;
    const std::string path = ri->local_uri != nullptr ? ri->local_uri : "/";
    for (unsigned char c : path) {
        char hex[4];
        std::snprintf(hex, sizeof(hex), "%%%02X", c);
        target += c > 0x20 && c < 0x7f && c != '"' && c != '%' ? std::string(1, c) : hex;
    }
    if (target.empty() || target[0] != '/')
        target = "/" + target;
    if (ri->query_string != nullptr && *ri->query_string != '\0' &&
        std::strpbrk(ri->query_string, "\r\n") == nullptr)
        target += std::string("?") + ri->query_string;
    ctx.resp.location = "https://" + host + ":" + std::to_string(self->m_shared.httpsPort) + target;
    SendSimple(ctx, 308, "this server answers on HTTPS only\n", true);
    t_bytes = static_cast<long long>(ctx.bytesOut);
    return FinishRequest(ctx, 308);
}

void Server::EndRequest(const mg_connection* conn, int status) {
    Server* self = g_pServer;
    if (self == nullptr || conn == nullptr)
        return;
    const mg_request_info* ri = mg_get_request_info(conn);
    if (ri == nullptr)
        return;
    // CivetWeb ends some requests it never began (a head it could not parse).
    double ms =
        t_start.time_since_epoch().count() == 0
            ? 0.0
            : std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - t_start)
                  .count();
    t_start = std::chrono::steady_clock::time_point();
    if (self->m_config.trustedProxies.empty()) {
        self->m_log.Write(ri->remote_addr, ri->request_method, ri->local_uri, status, t_bytes, ms);
    } else {
        const char* forwarded = mg_get_header(conn, "X-Forwarded-For");
        const std::string peer = ClientAddress(self->m_config.trustedProxies, ri->remote_addr,
                                               forwarded != nullptr ? forwarded : "");
        self->m_log.Write(peer.c_str(), ri->request_method, ri->local_uri, status, t_bytes, ms);
    }
    ProcessMetrics().CountRequest(t_kind, status, ms / 1000.0);
}

int Server::InitSsl(void* sslCtx, void* userData) {
    Server* self = static_cast<Server*>(userData);
    std::string error;
    if (ConfigureTlsContext(sslCtx, self->m_config.tls, error))
        return 1;  // the context is complete: CivetWeb loads no certificate of its own
    std::lock_guard<std::mutex> lock(self->m_mutexMessages);
    self->m_strTlsError = error;
    return -1;
}

void Server::ServeMetrics(mg_connection* conn) {
    const mg_request_info* ri = mg_get_request_info(conn);
    const char* forwarded = mg_get_header(conn, "X-Forwarded-For");
    const std::string client =
        ClientAddress(m_config.trustedProxies, ri->remote_addr, forwarded ? forwarded : "");
    RequestCtx ctx;
    FillRecord(ctx, conn, &m_shared);
    if (!InRanges(m_config.metricsAllow, client)) {
        SendSimple(ctx, 403, "the monitoring page is not open to " + client + "\n", false);
        t_bytes = static_cast<long long>(ctx.bytesOut);
        FinishRequest(ctx, 403);
        return;
    }
    MetricsSnapshot snap;
    snap.sessions = Session_TableSize();
    snap.tokenFiles = CountFiles(m_config.docRoot + "/tmp");
    snap.openStreams = m_shared.openStreams.load();
    DbPoolStats pools;
    Session_GetPoolStats(&pools);
    for (int k = 0; k < 3; ++k) {
        snap.poolInUse[k] = pools.inUse[k];
        snap.poolIdle[k] = pools.idle[k];
    }
    snap.poolAllocs = pools.allocs;
    snap.poolAllocSeconds = pools.allocSeconds;
    snap.poolAllocMaxSeconds = pools.allocMaxSeconds;
    const std::string page = ProcessMetrics().Render(snap);
    ctx.resp.status = 200;
    ctx.resp.contentType = "text/plain; version=0.0.4; charset=utf-8";
    ctx.resp.contentLength = static_cast<uint32_t>(page.size());
    ctx.resp.extraHeaders.emplace_back("Cache-Control", "no-store");
    CbSendHead(&ctx);
    CbWriteBody(&ctx, page.data(), static_cast<uint32_t>(page.size()));
    t_bytes = static_cast<long long>(ctx.bytesOut);
    FinishRequest(ctx, 200);
}

int Server::LogMessage(const mg_connection*, const char* message) {
    Server* self = g_pServer;
    if (message == nullptr)
        return 1;
    if (self != nullptr) {
        std::lock_guard<std::mutex> lock(self->m_mutexMessages);
        if (self->m_bStarting) {
            if (!self->m_strMessages.empty())
                self->m_strMessages += "; ";
            self->m_strMessages += message;
            return 1;
        }
    }
    std::fprintf(stderr, "webharbour: %s\n", message);
    return 1;
}

}  // namespace wh
