// webharbour's limits and life: a fresh tree served as an unprivileged user, the body cap, the
// event-stream bound, the stop with streams open, and the refusals to start (root, a folder it
// cannot write, port taken, module that does not load, bad configuration).
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <thread>

#include "tests/host/HostProcess.h"

namespace {

using wh_test::HttpConn;
using wh_test::HttpResponse;

class HostLifecycleTest : public ::testing::Test {
protected:
    wh_test::HostTree tree;
    wh_test::HostProcess host{tree};

    std::string EchoCount() { return wh_test::Fetch(host.Port(), "/t/echocount").body; }
};

// The library makes its token folder with mode 070, which its owner cannot write: webharbour
// prepares the folders first, so a log-in and a request with its CSRF token pass.
TEST_F(HostLifecycleTest, FreshTreeServesLogInsAsAnUnprivilegedUser) {
    tree.RemoveWritableFolders();
    ASSERT_TRUE(host.Start()) << host.Stderr();
    ASSERT_TRUE(host.WaitForOutput("Session End InitData", 10));
    HttpResponse login = wh_test::Fetch(host.Port(), "/t/login");
    std::string cookies;
    for (const auto& h : login.headers)
        cookies += (cookies.empty() ? "" : "; ") + h.second.substr(0, h.second.find(';'));
    HttpResponse r = wh_test::Fetch(host.Port(), "/t/guarded?x=1",
                                    "Cookie: " + cookies + "\r\nReferer: http://127.0.0.1:" +
                                        std::to_string(host.Port()) + "/p\r\n");
    EXPECT_NE(std::string::npos, r.body.find("\"status\" : \"success\"")) << r.body;
    const unsigned uid =
        wh_test::TestServingUser().drop ? wh_test::TestServingUser().uid : ::geteuid();
    EXPECT_NE(0u, uid) << "the host ran as root";
    const struct {
        const char* folder;
        unsigned mode;
    } kFolders[] = {{"webharbour/hdoc/tmp", 0700}, {"middle/log", 0750}, {"middle/data", 0750}};
    for (const auto& k : kFolders) {
        struct stat st {};
        ASSERT_EQ(0, ::stat(tree.Path(k.folder).c_str(), &st)) << k.folder;
        EXPECT_EQ(k.mode, st.st_mode & 07777) << k.folder;
        EXPECT_EQ(uid, st.st_uid) << k.folder;
    }
    EXPECT_EQ(0, host.Terminate(5)) << host.Stderr();
}

TEST_F(HostLifecycleTest, RefusesRootAndFoldersItCannotWrite) {
    if (::geteuid() == 0) {
        // Started as root by hand (the fixture would drop to the serving user).
        const std::string out = ws_test::RunAndCapture(
            "/bin/sh", {"-c", tree.Path("bin/webharbour") + " --port 0 2>&1; echo status=$?"});
        EXPECT_NE(std::string::npos, out.find("refusing to run as root")) << out;
        EXPECT_NE(std::string::npos, out.find("status=2")) << out;
        EXPECT_EQ(std::string::npos, out.find("Session_InitData")) << "the library never loaded";
        if (wh_test::TestServingUser().drop) {
            ::chown(tree.Path("middle/log").c_str(), 0, 0);
            wh_test::HostProcess p(tree);
            EXPECT_FALSE(p.Start());
            EXPECT_EQ(2, p.WaitExit(10));
            EXPECT_NE(std::string::npos, p.Stderr().find("middle/log (the log files) is not "
                                                         "writable by user"))
                << p.Stderr();
            tree.GiveToServingUser("middle/log");
        }
    }
    ws_test::RemoveTree(tree.Path("middle/data"));
    ws_test::WriteFile(tree.Path("middle/data"), "not a folder");
    wh_test::HostProcess p(tree);
    EXPECT_FALSE(p.Start());
    EXPECT_EQ(2, p.WaitExit(10));
    EXPECT_NE(std::string::npos, p.Stderr().find("middle/data (the embedded database's files) is "
                                                 "not a folder"))
        << p.Stderr();
    // The library (which prints this line when it loads) never ran in a tree it could not use.
    EXPECT_EQ(std::string::npos, p.Stdout().find("Session_InitData")) << p.Stdout();
}

TEST_F(HostLifecycleTest, BodyOverTheCapGets413AndNeverReachesTheHandler) {
    tree.WriteHostIni("MaxBodyBytes=1024\n");
    ASSERT_TRUE(host.Start()) << host.Stderr();
    const std::string post = "POST /t/echo HTTP/1.1\r\nHost: x\r\n", chunk(1000, 'c');
    const struct {
        const char* what;
        std::string request;
        int status;
    } kCases[] = {
        {"at the cap", post + "Content-Length: 1024\r\n\r\n" + std::string(1024, 'a'), 200},
        {"a byte over", post + "Content-Length: 1025\r\n\r\n" + std::string(1025, 'b'), 413},
        // A chunked upload announces no length: the cap is found while reading.
        {"chunked",
         post + "Transfer-Encoding: chunked\r\n\r\n3e8\r\n" + chunk + "\r\n3e8\r\n" + chunk +
             "\r\n0\r\n\r\n",
         413},
        // Refused before the body is sent: a huge announced length costs nothing.
        {"huge", post + "Content-Length: 5000000000\r\n\r\nxyz", 413},
    };
    for (const auto& k : kCases) {
        SCOPED_TRACE(k.what);
        HttpConn conn(host.Port());
        HttpResponse r;
        ASSERT_TRUE(conn.Send(k.request) && conn.Read(r));
        EXPECT_EQ(k.status, r.status);
        if (k.status == 200) {
            EXPECT_EQ(0u, r.body.find("length=1024\naaaa")) << r.body.substr(0, 40);
            continue;
        }
        EXPECT_EQ("close", r.Header("Connection"));
        EXPECT_TRUE(conn.ClosedByPeer(2000));
    }
    {
        // A client that waits for "100 Continue" gets it within the cap and sends its body;
        // over the cap it gets the 413 instead and never sends the body.
        HttpConn conn(host.Port());
        std::string head = "POST /t/echo HTTP/1.1\r\nHost: x\r\nExpect: 100-continue\r\n";
        ASSERT_TRUE(conn.Send(head + "Content-Length: 10\r\n\r\n"));
        HttpResponse cont;
        ASSERT_TRUE(conn.ReadHead(cont));
        EXPECT_EQ("HTTP/1.1 100 Continue\r\n\r\n", cont.raw);
        ASSERT_TRUE(conn.Send("0123456789"));
        HttpResponse ok;
        ASSERT_TRUE(conn.Read(ok));
        EXPECT_EQ("length=10\n0123456789", ok.body);
        // One byte over the cap: refused without the 100 Continue that would invite the body.
        ASSERT_TRUE(conn.Send(head + "Content-Length: 1025\r\n\r\n"));
        HttpResponse big;
        ASSERT_TRUE(conn.Read(big));
        EXPECT_EQ(413, big.status);
    }
    EXPECT_EQ("2", EchoCount());
    EXPECT_EQ(0, host.Terminate(5));
}

TEST_F(HostLifecycleTest, SigtermWithStreamsOpenEndsWithinTwoSeconds) {
    ASSERT_TRUE(host.Start()) << host.Stderr();
    std::vector<std::unique_ptr<HttpConn>> streams;
    for (int i = 0; i < 4; ++i) {
        streams.push_back(std::make_unique<HttpConn>(host.Port()));
        ASSERT_TRUE(streams.back()->Get("/t/forever"));
        HttpResponse r;
        ASSERT_TRUE(streams.back()->ReadHead(r));
        ASSERT_EQ(200, r.status);
    }
    HttpConn idle(host.Port());  // a kept-alive connection between requests
    ASSERT_TRUE(idle.Get("/t/plain?n=1"));
    HttpResponse r;
    ASSERT_TRUE(idle.Read(r));

    auto start = std::chrono::steady_clock::now();
    int status = host.Terminate(2.0);
    double took = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    EXPECT_EQ(0, status) << "took " << took << " s\n" << host.Stderr();
    EXPECT_LT(took, 2.0);
    EXPECT_NE(std::string::npos, host.Stdout().find("webharbour: stopped"));
    for (auto& s : streams)
        EXPECT_TRUE(s->ClosedByPeer(1000));
}

TEST_F(HostLifecycleTest, PortTakenIsAClearErrorAndNonZeroExit) {
    int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_addr.s_addr = htonl(INADDR_ANY);
    ASSERT_EQ(0, ::bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)));
    ASSERT_EQ(0, ::listen(fd, 4));
    socklen_t len = sizeof(addr);
    ::getsockname(fd, reinterpret_cast<sockaddr*>(&addr), &len);
    std::string port = std::to_string(ntohs(addr.sin_port));

    EXPECT_FALSE(host.Start({"--port", port}));
    EXPECT_EQ(4, host.WaitExit(10));
    std::string err = host.Stderr();
    EXPECT_NE(std::string::npos, err.find("webharbour: cannot serve on " + port)) << err;
    EXPECT_EQ(std::string::npos, host.Stdout().find("listening"));
    ::close(fd);
}

TEST_F(HostLifecycleTest, StartIsRefusedWithAMessage) {
    ws_test::WriteFile(tree.Path("lib/libgarbage.so"), "this is not a shared library\n");
    const struct {
        const char* mainLines;
        const char* modules;
        std::vector<std::string> args;
        int exitStatus;
        const char* message;
    } kCases[] = {
        {"", "gone=libgone.so /gone\n", {}, 3, "cannot load module \"gone\""},
        {"", "junk=libgarbage.so /junk\n", {}, 3, "cannot load module \"junk\""},
        {"", "noentry=libQVTranslate.so /n\n", {}, 3, "does not export wh_module_register"},
        {"WorkerThreads=many\n", "", {}, 2, "WorkerThreads"},
        {"", "", {"--port", "http"}, 2, "--port needs a port number"},
    };
    for (const auto& k : kCases) {
        SCOPED_TRACE(k.message);
        tree.WriteHostIni(k.mainLines, true, k.modules);
        wh_test::HostProcess p(tree);
        EXPECT_FALSE(p.Start(k.args));
        EXPECT_EQ(k.exitStatus, p.WaitExit(10));
        EXPECT_NE(std::string::npos, p.Stderr().find(k.message)) << p.Stderr();
    }
}

}  // namespace
