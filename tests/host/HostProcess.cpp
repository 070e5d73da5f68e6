// Test support for webharbour: private trees, the process and a raw-socket HTTP/1.1 client.
#include "tests/host/HostProcess.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <grp.h>
#include <netinet/in.h>
#include <openssl/ssl.h>
#include <poll.h>
#include <pwd.h>
#include <signal.h>
#include <strings.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <thread>

namespace wh_test {

namespace {

const char* const kWritable[] = {"webharbour/hdoc/tmp", "middle/log", "middle/data"};

// The files themselves where the serving user may not reach the build tree: hard links (on the
// same file system) or copies, symbolic links followed.
void Place(const std::string& from, const std::string& to) {
    ws_test::RunAndCapture(
        "/bin/sh", {"-c", "cp -RLl \"$0\" \"$1\" 2>/dev/null || cp -RL \"$0\" \"$1\"", from, to});
}

// In the child before exec: the serving user's identity, for good.
void DropPrivileges() {
    const ServingUser& user = TestServingUser();
    if (!user.drop)
        return;
    if (::setgroups(0, nullptr) != 0 || ::setgid(user.gid) != 0 || ::setuid(user.uid) != 0)
        ::_exit(126);
}

// Polls `done` every 10 ms for up to `seconds` (at least once); its last answer.
bool Within(double seconds, const std::function<bool()>& done) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    for (;; std::this_thread::sleep_for(std::chrono::milliseconds(10))) {
        if (done())
            return true;
        if (std::chrono::steady_clock::now() >= deadline)
            return false;
    }
}

}  // namespace

const ServingUser& TestServingUser() {
    static const ServingUser user = [] {
        ServingUser u;
        if (::geteuid() != 0)
            return u;
        const char* name = std::getenv("WH_TEST_USER");
        struct passwd* pw = ::getpwnam(name != nullptr && *name ? name : "nobody");
        if (pw == nullptr || pw->pw_uid == 0)
            return u;  // no such user: the processes run as root and webharbour refuses
        u.drop = true;
        u.uid = pw->pw_uid;
        u.gid = pw->pw_gid;
        return u;
    }();
    return user;
}

HostTree::HostTree() : m_tree("whhost") {
    const std::string build = WH_BUILD_TREE;
    ws_test::CopyExecutable(build + "/bin/webharbour", Path("bin/webharbour"));
    Place(build + "/lib/.", Path("lib"));
    Place(build + "/middle/lang/.", Path("middle/lang"));
    Place(WH_TEST_MODULE, Path("lib/libwh_test_module.so"));
    ws_test::WriteFile(Path("webharbour/hdoc/index.html"), "<p>static index</p>\n");
    ws_test::WriteFile(Path("middle/Conf/middle.ini"),
                       "[main]\nloglevel=0\n[safe]\ntokeninterval=60\ncheckverifycode=0\n"
                       "checktoken=1\n");
    ws_test::WriteFile(Path("middle/Conf/dbconfig.ini"), "[main]\nListenPort=8123\n");
    WriteHostIni("");
    ::chmod(Root().c_str(), 0755);  // mkdtemp made it 0700: the serving user must get in
    for (const char* rel : kWritable)
        GiveToServingUser(rel);
}

void HostTree::WriteHostIni(const std::string& mainLines, bool withTestModule,
                            const std::string& moduleLines, const std::string& tailSections) {
    std::string text = "[main]\nListenPort=8121\n" + mainLines + "[modules]\n";
    if (withTestModule)
        text += "test=libwh_test_module.so /t\n";
    text += moduleLines + tailSections;
    ws_test::WriteFile(Path("webharbour/middle.ini"), text);
}

void HostTree::RemoveWritableFolders() {
    for (const char* rel : kWritable)
        ws_test::RemoveTree(Path(rel));
    // The library's own token folder mode, as a library that ran before the host prepared
    // anything would have left it.
    ::mkdir(Path("webharbour/hdoc/tmp").c_str(), 0);
    ::chmod(Path("webharbour/hdoc/tmp").c_str(), 070);
    GiveToServingUser("webharbour/hdoc/tmp");
    // The serving user may create folders beside the ones removed.
    GiveToServingUser("middle");
}

void HostTree::GiveToServingUser(const std::string& rel) const {
    const ServingUser& user = TestServingUser();
    if (user.drop) {
        ws_test::RunAndCapture(
            "/bin/chown",
            {"-R", std::to_string(user.uid) + ":" + std::to_string(user.gid), Path(rel)});
    }
}

bool HostTree::MakeCertificate() const {
    ws_test::MakeDirs(Path("tls"));
    int status = -1;
    ws_test::RunAndCapture("/usr/bin/openssl",
                           {"req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "2", "-subj",
                            "/CN=localhost", "-addext", "subjectAltName=DNS:localhost,IP:127.0.0.1",
                            "-keyout", Path("tls/key.pem"), "-out", Path("tls/cert.pem")},
                           &status);
    ::chmod(Path("tls/key.pem").c_str(), 0644);
    return status == 0;
}

std::string RunAsServingUser(const std::string& exe, const std::vector<std::string>& args,
                             int* status) {
    return ws_test::RunAndCapture(exe, args, status, &DropPrivileges);
}

HostProcess::~HostProcess() {
    if (m_pid > 0 && !m_bExited) {
        ::kill(m_pid, SIGKILL);
        ::waitpid(m_pid, nullptr, 0);
    }
}

bool HostProcess::Start(std::vector<std::string> args) {
    if (std::find(args.begin(), args.end(), "--port") == args.end()) {
        args.push_back("--port");
        args.push_back("0");
    }
    args.insert(args.begin(), m_tree.Path("bin/webharbour"));
    m_pid =
        ws_test::Spawn(args, m_tree.Path("stdout.txt"), m_tree.Path("stderr.txt"), &DropPrivileges);
    const std::string mark = "webharbour: listening on port ";
    std::string text;
    // Until the line is whole, or the process ended without listening.
    Within(10, [&] {
        text = Stdout();
        return text.find('\n', text.find(mark)) != std::string::npos || WaitExit(0) != -1;
    });
    const std::string::size_type at = text.find(mark);
    m_nPort = at == std::string::npos ? 0 : std::atoi(text.c_str() + at + mark.size());
    return m_pid > 0 && m_nPort > 0 && !m_bExited;
}

int HostProcess::WaitExit(double seconds) {
    Within(seconds, [this] {
        int status = 0;
        if (m_bExited || ::waitpid(m_pid, &status, WNOHANG) != m_pid)
            return m_bExited;
        m_bExited = true;
        m_nExitStatus = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        return true;
    });
    return m_bExited ? m_nExitStatus : -1;
}

int HostProcess::Terminate(double seconds) {
    if (m_pid <= 0 || m_bExited)
        return -1;
    ::kill(m_pid, SIGTERM);
    return WaitExit(seconds);
}

std::string HostProcess::Stdout() const {
    return ws_test::ReadFile(m_tree.Path("stdout.txt"));
}

bool HostProcess::WaitForOutput(const std::string& text, double seconds) const {
    return Within(seconds, [&] { return Stdout().find(text) != std::string::npos; });
}

std::string HostProcess::Stderr() const {
    return ws_test::ReadFile(m_tree.Path("stderr.txt"));
}

std::string HttpResponse::Header(const std::string& name) const {
    for (const auto& h : headers) {
        if (::strcasecmp(h.first.c_str(), name.c_str()) == 0)
            return h.second;
    }
    return "";
}

int HttpResponse::Count(const std::string& name) const {
    int n = 0;
    for (const auto& h : headers)
        n += ::strcasecmp(h.first.c_str(), name.c_str()) == 0 ? 1 : 0;
    return n;
}

HttpConn::HttpConn(int port, bool tls, int maxTlsVersion) : m_nPort(port) {
    m_nFd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_port = htons(static_cast<uint16_t>(port));
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (::connect(m_nFd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) != 0) {
        ::close(m_nFd);
        m_nFd = -1;
        return;
    }
    timeval tv{5, 0};
    ::setsockopt(m_nFd, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof(tv));
    if (!tls)
        return;
    static SSL_CTX* ctx = SSL_CTX_new(TLS_client_method());  // shared by every connection
    SSL* ssl = SSL_new(ctx);
    if (maxTlsVersion != 0) {
        SSL_set_min_proto_version(ssl, TLS1_VERSION);
        SSL_set_max_proto_version(ssl, maxTlsVersion);
        SSL_set_security_level(ssl, 0);  // OpenSSL's own floor would refuse before the server
    }
    SSL_set_fd(ssl, m_nFd);
    SSL_set_tlsext_host_name(ssl, "localhost");
    m_pSsl = ssl;
    if (SSL_connect(ssl) != 1) {
        SSL_free(ssl);
        m_pSsl = nullptr;
        ::close(m_nFd);
        m_nFd = -1;
    }
}

HttpConn::~HttpConn() {
    if (m_pSsl != nullptr)
        SSL_free(static_cast<SSL*>(m_pSsl));
    if (m_nFd >= 0)
        ::close(m_nFd);
}

std::string HttpConn::TlsVersion() const {
    return m_pSsl != nullptr ? SSL_get_version(static_cast<SSL*>(m_pSsl)) : "";
}

long HttpConn::Recv(char* buf, size_t size) {
    if (m_pSsl != nullptr)
        return SSL_read(static_cast<SSL*>(m_pSsl), buf, static_cast<int>(size));
    return ::recv(m_nFd, buf, size, 0);
}

bool HttpConn::Send(const std::string& bytes) {
    size_t done = 0;
    while (m_nFd >= 0 && done < bytes.size()) {
        ssize_t n = m_pSsl != nullptr
                        ? SSL_write(static_cast<SSL*>(m_pSsl), bytes.data() + done,
                                    static_cast<int>(bytes.size() - done))
                        : ::send(m_nFd, bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL);
        if (n <= 0)
            return false;
        done += static_cast<size_t>(n);
    }
    return m_nFd >= 0;
}

bool HttpConn::Get(const std::string& target, const std::string& extra) {
    return Send("GET " + target + " HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(m_nPort) +
                "\r\n" + extra + "\r\n");
}

bool HttpConn::Fill() {
    char buf[16384];
    long n = m_nFd < 0 ? -1 : Recv(buf, sizeof(buf));
    if (n <= 0)
        return false;
    m_strBuf.append(buf, static_cast<size_t>(n));
    return true;
}

bool HttpConn::ReadLine(std::string& line, std::string& raw) {
    std::string::size_type eol;
    while ((eol = m_strBuf.find("\r\n")) == std::string::npos) {
        if (!Fill())
            return false;
    }
    line = m_strBuf.substr(0, eol);
    raw += m_strBuf.substr(0, eol + 2);
    m_strBuf.erase(0, eol + 2);
    return true;
}

bool HttpConn::ReadExact(size_t n, std::string& out) {
    while (m_strBuf.size() < n) {
        if (!Fill())
            return false;
    }
    out = m_strBuf.substr(0, n);
    m_strBuf.erase(0, n);
    return true;
}

bool HttpConn::ReadHead(HttpResponse& out) {
    out = HttpResponse();
    std::string line;
    if (!ReadLine(line, out.raw) || line.compare(0, 9, "HTTP/1.1 ") != 0)
        return false;
    out.status = std::atoi(line.c_str() + 9);
    out.head = line + "\r\n";
    for (;;) {
        if (!ReadLine(line, out.raw))
            return false;
        if (line.empty())
            return true;
        out.head += line + "\r\n";
        std::string::size_type colon = line.find(':');
        std::string value = colon == std::string::npos ? "" : line.substr(colon + 1);
        value.erase(0, value.find_first_not_of(' '));
        out.headers.emplace_back(line.substr(0, colon), value);
    }
}

bool HttpConn::ReadChunk(HttpResponse& out, std::string& data, bool& terminator) {
    terminator = false;
    std::string line;
    if (!ReadLine(line, out.raw))
        return false;
    size_t size = std::strtoul(line.c_str(), nullptr, 16);
    if (size == 0) {
        terminator = ReadLine(line, out.raw) && line.empty();
        return false;
    }
    std::string crlf;
    if (!ReadExact(size, data) || !ReadExact(2, crlf) || crlf != "\r\n")
        return false;
    out.raw += data + crlf;
    out.chunks.push_back(data);
    out.body += data;
    return true;
}

bool HttpConn::Read(HttpResponse& out, bool headRequest) {
    if (!ReadHead(out))
        return false;
    if (headRequest || out.status == 204 || out.status == 304)
        return true;
    if (out.Header("Transfer-Encoding") == "chunked") {
        std::string data;
        bool terminator = false;
        while (ReadChunk(out, data, terminator)) {
        }
        return terminator;
    }
    std::string length = out.Header("Content-Length");
    if (!length.empty()) {
        std::string body;
        if (!ReadExact(std::strtoul(length.c_str(), nullptr, 10), body))
            return false;
        out.body = body;
        out.raw += body;
        return true;
    }
    while (Fill()) {
    }
    out.body = m_strBuf;
    out.raw += m_strBuf;
    m_strBuf.clear();
    return true;
}

bool HttpConn::ClosedByPeer(int ms) {
    // Whatever still arrives (the rest of a stream) is kept in the buffer; only the end counts.
    auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
    for (;;) {
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                        deadline - std::chrono::steady_clock::now())
                        .count();
        if (left <= 0)
            return false;
        pollfd p{m_nFd, POLLIN, 0};
        if (::poll(&p, 1, static_cast<int>(left)) <= 0)
            return false;
        char buf[4096];
        long n = Recv(buf, sizeof(buf));
        if (n <= 0)
            return true;  // orderly close, or reset
        m_strBuf.append(buf, static_cast<size_t>(n));
    }
}

HttpResponse Fetch(int port, const std::string& target, const std::string& extra, bool tls) {
    HttpConn conn(port, tls);
    HttpResponse r;
    if (conn.Get(target, extra))
        conn.Read(r);
    return r;
}

}  // namespace wh_test
