// Test support for webharbour: a private installation tree with the real webharbour process,
// and a small HTTP/1.1 client on raw sockets (or TLS) so that tests see the framing byte for byte.
//
// webharbour refuses to run as root. When the tests run as root, every process the fixture
// starts in a tree (webharbour and the tools) runs as an unprivileged user instead - the user
// named by WH_TEST_USER, else "nobody" - and the tree's writable folders belong to that user.
#pragma once

#include <sys/types.h>

#include <string>
#include <utility>
#include <vector>

#include "tests/support/TestTree.h"

namespace wh_test {

// A private installation tree: bin/webharbour copied (the library finds the installation from
// the executable's real path), lib/ holding links to the built libraries and the test module.
class HostTree {
public:
    HostTree();
    const std::string& Root() const { return m_tree.Root(); }
    std::string Path(const std::string& rel) const { return m_tree.Path(rel); }
    // Writes webharbour/middle.ini: the [main] lines given, the test module at /t, then
    // `moduleLines` and `tailSections` (e.g. "[ssl]\n...").
    void WriteHostIni(const std::string& mainLines, bool withTestModule = true,
                      const std::string& moduleLines = "", const std::string& tailSections = "");
    // Removes the folders the library writes (hdoc/tmp, middle/log, middle/data), as on a tree
    // freshly unpacked.
    void RemoveWritableFolders();
    // Gives `rel` (recursively) to the user the processes run as.
    void GiveToServingUser(const std::string& rel) const;
    // A self-signed certificate and key for "localhost" and 127.0.0.1, made with the openssl
    // tool: <root>/tls/cert.pem and <root>/tls/key.pem.
    bool MakeCertificate() const;

private:
    ws_test::TempTree m_tree;
};

// The user processes of a tree run as: uid and gid, and whether privileges are dropped at all
// (only when the tests run as root).
struct ServingUser {
    bool drop = false;
    unsigned uid = 0;
    unsigned gid = 0;
};
const ServingUser& TestServingUser();

// Runs `exe` with `args` as the serving user and returns its standard output; `status` gets the
// exit status (-1 when it could not run).
std::string RunAsServingUser(const std::string& exe, const std::vector<std::string>& args,
                             int* status = nullptr);

// The webharbour process. Start() runs it with --port 0 and waits for its "listening" line.
class HostProcess {
public:
    explicit HostProcess(const HostTree& tree) : m_tree(tree) {}
    ~HostProcess();
    HostProcess(const HostProcess&) = delete;
    HostProcess& operator=(const HostProcess&) = delete;

    // Starts webharbour with `args` (plus "--port 0" when `args` holds no port) and waits up to
    // ten seconds for it to listen. False when it exited or never listened.
    bool Start(std::vector<std::string> args = {});
    // Waits up to `seconds` for the process to exit; its exit status (or -1 on time-out, with
    // the process still running).
    int WaitExit(double seconds);
    // Sends SIGTERM and waits up to `seconds`; the exit status, or -1 when it did not end in time.
    int Terminate(double seconds);
    int Port() const { return m_nPort; }
    std::string Stdout() const;
    std::string Stderr() const;
    // Waits up to `seconds` for `text` on standard output (e.g. the library's "Session End
    // InitData", after which sessions made now are kept); true when it came.
    bool WaitForOutput(const std::string& text, double seconds) const;

private:
    const HostTree& m_tree;
    pid_t m_pid = -1;
    int m_nPort = 0;
    bool m_bExited = false;
    int m_nExitStatus = -1;  // valid once m_bExited
};

struct HttpResponse {
    int status = 0;
    std::string head;  // status line and headers, as received, up to the blank line
    std::vector<std::pair<std::string, std::string>> headers;  // in order, names as received
    std::string body;                                          // de-chunked
    std::vector<std::string> chunks;  // the pieces of a chunked body, terminator excluded
    std::string raw;                  // every byte of this response
    // The value of the first header named `name` (case-insensitive), "" when absent.
    std::string Header(const std::string& name) const;
    int Count(const std::string& name) const;
};

// One TCP connection to 127.0.0.1, plain or TLS. Reads time out after five seconds.
class HttpConn {
public:
    // `tls`: a TLS handshake first (the server's certificate is not verified); `maxTlsVersion`
    // caps the versions offered (0: OpenSSL's own range, e.g. TLS1_1_VERSION to test a refusal).
    explicit HttpConn(int port, bool tls = false, int maxTlsVersion = 0);
    ~HttpConn();
    HttpConn(const HttpConn&) = delete;
    HttpConn& operator=(const HttpConn&) = delete;

    bool Connected() const { return m_nFd >= 0; }
    // The TLS version agreed ("TLSv1.3"), "" for a plain connection.
    std::string TlsVersion() const;
    bool Send(const std::string& bytes);
    // Sends "GET target HTTP/1.1" with Host and the extra header lines ("Name: value\r\n"...).
    bool Get(const std::string& target, const std::string& extra = "");
    // Reads one whole response (the body by Content-Length, chunks, or to the close).
    bool Read(HttpResponse& out, bool headRequest = false);
    // Reads only the status line and headers.
    bool ReadHead(HttpResponse& out);
    // Reads one chunk of a chunked body into `data`; false at the terminating chunk (then
    // `terminator` is true) or on error.
    bool ReadChunk(HttpResponse& out, std::string& data, bool& terminator);
    // True when the server closes the connection within `ms` (bytes still arriving are kept).
    bool ClosedByPeer(int ms);
    // Bytes already received but not yet consumed.
    const std::string& Pending() const { return m_strBuf; }

private:
    bool Fill();
    bool ReadLine(std::string& line, std::string& raw);
    bool ReadExact(size_t n, std::string& out);
    long Recv(char* buf, size_t size);

    int m_nFd = -1;
    int m_nPort = 0;
    void* m_pSsl = nullptr;  // SSL*, when the connection is TLS
    std::string m_strBuf;
};

// Shortcut: one GET on a fresh connection.
HttpResponse Fetch(int port, const std::string& target, const std::string& extra = "",
                   bool tls = false);

}  // namespace wh_test
