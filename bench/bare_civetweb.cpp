// bare_civetweb: the reference server of bench/host_bench.sh - CivetWeb with the same handler
// module and the same worker threads as webharbour, and nothing else: each request to a path the
// module registered gets the smallest record the handler needs (method, cookie, host, path and
// query, peer address) and its answer is written the way webharbour writes a plain answer
// (status line, Date, Content-Type, Content-Length, the header lines given, Connection, body;
// one write). The ratio of the two request rates is then the cost of what webharbour adds around
// the handler: its full record, routing, security headers, access log, counters and checks.
//
//   bare_civetweb --module FILE [--prefix /t] [--head FILE] [--port N] [--threads N]
//                 [--tls CERT-AND-KEY.pem --glue DIR]
// --head: header lines to send as they are ("Name: value" lines). --tls serves HTTPS with the
// PEM file (certificate and key); CivetWeb then needs the OpenSSL glue webharbour ships
// (DIR/libwh_sslglue.so and libwh_cryptoglue.so, see host/tls/SslGlue.c). Run it from an
// installation tree's bin/ (the library finds its tree from the executable). Prints
// "bare_civetweb: listening on port N" and serves until SIGTERM or SIGINT.
#include <civetweb.h>
#include <dlfcn.h>
#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <ctime>
#include <fstream>
#include <map>
#include <string>

#include "host/WhModule.h"
#include "web/Url.h"
#include "web/WhInfo.h"

namespace {

std::string g_strHead;                           // extra header lines, each ending in CRLF
std::string g_strPrefix = "/t";                  // the module's prefix
std::map<std::string, WhHandler> g_mapHandlers;  // filled before the server starts
volatile sig_atomic_t g_nStop = 0;

void OnSignal(int) {
    g_nStop = 1;
}

const char* HttpDate() {
    thread_local time_t t_last = 0;
    thread_local char t_text[64] = {0};
    time_t now = std::time(nullptr);
    if (now != t_last) {
        struct tm gmt;
        gmtime_r(&now, &gmt);
        std::strftime(t_text, sizeof(t_text), "%a, %d %b %Y %H:%M:%S GMT", &gmt);
        t_last = now;
    }
    return t_text;
}

struct Request {
    mg_connection* conn;
    st_wh_info info;
    st_wh_head head;
    st_wh_resp resp;
    Url url;
    bool keep = true;
    std::string pending;  // the head, sent with the body
};

void SendHead(void* connId) {
    Request& r = *static_cast<Request*>(connId);
    r.pending = "HTTP/1.1 " + std::to_string(r.resp.status) + " " +
                mg_get_response_code_text(r.conn, r.resp.status) + "\r\nDate: " + HttpDate() +
                "\r\nContent-Type: " + r.resp.contentType +
                "\r\nContent-Length: " + std::to_string(r.resp.contentLength) + "\r\n";
    for (const auto& h : r.resp.extraHeaders)
        r.pending += h.first + ": " + h.second + "\r\n";
    r.pending += g_strHead + "Connection: " + (r.keep ? "keep-alive" : "close") + "\r\n\r\n";
}

void WriteBody(void* connId, const char* data, uint32_t length) {
    Request& r = *static_cast<Request*>(connId);
    r.pending.append(data, length);
    mg_write(r.conn, r.pending.data(), r.pending.size());
    r.pending.clear();
}

bool ServerVariable(void* connId, int32_t var, char* buf, uint32_t* size) {
    Request& r = *static_cast<Request*>(connId);
    const char* peer = mg_get_request_info(r.conn)->remote_addr;
    const size_t n = std::strlen(peer);
    if (var != WH_VAR_PEER_ADDRESS || n + 1 > *size)
        return false;
    std::memcpy(buf, peer, n + 1);
    *size = static_cast<uint32_t>(n);
    return true;
}

const char* NotEncoded(void*, const char*, uint32_t*, int32_t) {
    return nullptr;
}

int Answer(mg_connection* conn, void*) {
    const mg_request_info* ri = mg_get_request_info(conn);
    auto it = g_mapHandlers.find(ri->local_uri);
    if (it == g_mapHandlers.end())
        return 0;
    Request r;
    r.conn = conn;
    const char* cookie = mg_get_header(conn, "Cookie");
    const char* host = mg_get_header(conn, "Host");
    const char* connection = mg_get_header(conn, "Connection");
    r.keep = connection == nullptr || mg_strcasecmp(connection, "close") != 0;
    r.head.method = std::strcmp(ri->request_method, "GET") == 0 ? WH_METHOD_GET : WH_METHOD_OTHER;
    r.head.cookie = cookie != nullptr ? cookie : "";
    r.head.host = host != nullptr ? host : "";
    r.url.SetPath(ri->local_uri + 1);
    r.url.SetQueryString(ri->query_string != nullptr ? ri->query_string : "");
    r.info.connId = &r;
    r.info.head = &r.head;
    r.info.url = &r.url;
    r.info.resp = &r.resp;
    r.info.getServerVariable = &ServerVariable;
    r.info.sendHead = &SendHead;
    r.info.writeBody = &WriteBody;
    r.info.encodeBody = &NotEncoded;
    it->second(&r.info, nullptr);
    return 200;
}

int AddHandler(WhRegistry*, const char* path, WhHandler handler, void*) {
    g_mapHandlers[g_strPrefix + "/" + path] = handler;
    return 0;
}
int Never() {
    return 0;
}
int NoWait(int) {
    return 0;
}
int Always(const st_wh_info*) {
    return 1;
}

}  // namespace

int main(int argc, char** argv) {
    std::string port = "0", threads = "64", module, headFile, pem, glue;
    for (int i = 1; i + 1 < argc; i += 2) {
        const std::string a = argv[i];
        const char* v = argv[i + 1];
        if (a == "--port")
            port = v;
        else if (a == "--threads")
            threads = v;
        else if (a == "--module")
            module = v;
        else if (a == "--prefix")
            g_strPrefix = v;
        else if (a == "--head")
            headFile = v;
        else if (a == "--tls")
            pem = v;
        else if (a == "--glue")
            glue = v;
    }
    if (!headFile.empty()) {
        std::ifstream head(headFile);
        for (std::string line; std::getline(head, line);) {
            if (!line.empty() && line.back() == '\r')
                line.pop_back();
            if (!line.empty())
                g_strHead += line + "\r\n";
        }
    }
    void* lib = module.empty() ? nullptr : ::dlopen(module.c_str(), RTLD_NOW);
    auto entry = lib != nullptr
                     ? reinterpret_cast<WhModuleRegisterFn>(::dlsym(lib, WH_MODULE_ENTRY))
                     : nullptr;
    WhRegistry reg{};
    reg.apiVersion = WH_MODULE_API_VERSION;
    reg.prefix = g_strPrefix.c_str();
    reg.installPath = "";
    reg.addHandler = &AddHandler;
    reg.isStopping = &Never;
    reg.waitStopping = &NoWait;
    reg.isConnectionOk = &Always;
    if (entry == nullptr || entry(&reg) != 0) {
        std::fprintf(stderr,
                     "usage: bare_civetweb --module FILE [--prefix /t] [--head FILE] "
                     "[--port N] [--threads N] [--tls PEM --glue DIR] (%s)\n",
                     lib == nullptr ? ::dlerror() : "no usable module");
        return 2;
    }
    if (!pem.empty()) {
        port += "s";
        for (const char* so : {"/libwh_cryptoglue.so", "/libwh_sslglue.so"}) {
            if (::dlopen((glue + so).c_str(), RTLD_NOW) == nullptr) {
                std::fprintf(stderr, "bare_civetweb: %s\n", ::dlerror());
                return 2;
            }
        }
    }
    signal(SIGTERM, &OnSignal);
    signal(SIGINT, &OnSignal);
    signal(SIGPIPE, SIG_IGN);
    // The options webharbour sets for the same purposes.
    const char* options[] = {"listening_ports",
                             port.c_str(),
                             "num_threads",
                             threads.c_str(),
                             "tcp_nodelay",
                             "1",
                             "enable_keep_alive",
                             "yes",
                             "keep_alive_timeout_ms",
                             "500",
                             pem.empty() ? nullptr : "ssl_certificate",
                             pem.c_str(),
                             nullptr};
    mg_callbacks callbacks;
    std::memset(&callbacks, 0, sizeof(callbacks));
    mg_context* ctx = mg_start(&callbacks, nullptr, options);
    if (ctx == nullptr) {
        std::fprintf(stderr, "bare_civetweb: cannot listen on %s\n", port.c_str());
        return 4;
    }
    mg_set_request_handler(ctx, g_strPrefix.c_str(), &Answer, nullptr);
    mg_server_port ports[2];
    int n = mg_get_server_ports(ctx, 2, ports);
    std::printf("bare_civetweb: listening on port %d\n", n > 0 ? ports[0].port : 0);
    std::fflush(stdout);
    while (!g_nStop)
        ::usleep(50000);
    mg_stop(ctx);
    return 0;
}
