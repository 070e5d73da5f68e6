// bare_civetweb: the reference server of bench/host_bench.sh - CivetWeb with one handler that
// answers every request with a fixed body, written the way webharbour writes a plain answer
// (status line, Date, Content-Type, Content-Length, the header lines webharbour adds,
// Connection, body; one write), so that the ratio of the two request rates is the cost of
// webharbour's record, routing and gate.
//
//   bare_civetweb --body FILE --type CONTENT-TYPE [--head FILE] [--port N] [--threads N]
//                 [--tls CERT-AND-KEY.pem --glue DIR]
// --head: header lines to send as they are ("Name: value" lines). --tls serves HTTPS with the
// PEM file (certificate and key); CivetWeb then needs the OpenSSL glue webharbour ships
// (DIR/libwh_sslglue.so and libwh_cryptoglue.so, see host/tls/SslGlue.c).
// Prints "bare_civetweb: listening on port N" and serves until SIGTERM or SIGINT.
#include <civetweb.h>
#include <dlfcn.h>
#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <sstream>
#include <string>

namespace {

std::string g_strBody;  // set before the server starts, read-only afterwards
std::string g_strType;
std::string g_strHead;  // extra header lines, each ending in CRLF
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

int Answer(mg_connection* conn, void*) {
    const char* connection = mg_get_header(conn, "Connection");
    bool keep = connection == nullptr || mg_strcasecmp(connection, "close") != 0;
    std::string out = "HTTP/1.1 200 OK\r\nDate: ";
    out += HttpDate();
    out += "\r\nContent-Type: " + g_strType +
           "\r\nContent-Length: " + std::to_string(g_strBody.size()) + "\r\n" + g_strHead +
           "Connection: " + (keep ? "keep-alive" : "close") + "\r\n\r\n" + g_strBody;
    mg_write(conn, out.data(), out.size());
    return 200;
}

}  // namespace

int main(int argc, char** argv) {
    std::string port = "0", threads = "64", bodyFile, headFile, pem, glue;
    for (int i = 1; i + 1 < argc; i += 2) {
        std::string a = argv[i];
        if (a == "--port")
            port = argv[i + 1];
        else if (a == "--threads")
            threads = argv[i + 1];
        else if (a == "--body")
            bodyFile = argv[i + 1];
        else if (a == "--type")
            g_strType = argv[i + 1];
        else if (a == "--head")
            headFile = argv[i + 1];
        else if (a == "--tls")
            pem = argv[i + 1];
        else if (a == "--glue")
            glue = argv[i + 1];
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
    if (!pem.empty()) {
        port += "s";
        for (const char* lib : {"/libwh_cryptoglue.so", "/libwh_sslglue.so"}) {
            if (::dlopen((glue + lib).c_str(), RTLD_NOW) == nullptr) {
                std::fprintf(stderr, "bare_civetweb: %s\n", ::dlerror());
                return 2;
            }
        }
    }
    std::ifstream in(bodyFile, std::ios::binary);
    if (bodyFile.empty() || !in || g_strType.empty()) {
        std::fprintf(stderr, "usage: bare_civetweb --body FILE --type CONTENT-TYPE [--port N]\n");
        return 2;
    }
    std::stringstream ss;
    ss << in.rdbuf();
    g_strBody = ss.str();

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
    mg_set_request_handler(ctx, "/", &Answer, nullptr);
    mg_server_port ports[2];
    int n = mg_get_server_ports(ctx, 2, ports);
    std::printf("bare_civetweb: listening on port %d\n", n > 0 ? ports[0].port : 0);
    std::fflush(stdout);
    while (!g_nStop)
        ::usleep(50000);
    mg_stop(ctx);
    return 0;
}
