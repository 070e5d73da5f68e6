// webharbour's answers on the wire: lengths, redirect, cookies, event-stream chunks, gzip or
// identity, the record handlers see, static files - all over one real process on loopback.
#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <memory>

#include "tests/host/HostProcess.h"
#include "tests/support/Gunzip.h"

namespace {

using wh_test::HttpConn;
using wh_test::HttpResponse;
using ws_test::Gunzip;

class HostFramingTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        s_tree = std::make_unique<wh_test::HostTree>();
        // Loopback stands for a reverse proxy, so that a test can choose the client's address.
        s_tree->WriteHostIni("TrustedProxies=127.0.0.1\n");
        s_host = std::make_unique<wh_test::HostProcess>(*s_tree);
        ASSERT_TRUE(s_host->Start()) << s_host->Stderr();
    }
    static void TearDownTestSuite() {
        EXPECT_EQ(0, s_host->Terminate(5)) << s_host->Stderr();
        s_host.reset();
        s_tree.reset();
    }
    int Port() const { return s_host->Port(); }

    static std::unique_ptr<wh_test::HostTree> s_tree;
    static std::unique_ptr<wh_test::HostProcess> s_host;
};

std::unique_ptr<wh_test::HostTree> HostFramingTest::s_tree;
std::unique_ptr<wh_test::HostProcess> HostFramingTest::s_host;

TEST_F(HostFramingTest, PlainAndGzipBodiesOnOneKeptAliveConnection) {
    const struct {
        const char* target;
        const char* accept;  // Accept-Encoding, nullptr for none
        size_t length;       // of the decoded body
        bool gzip;
    } kCases[] = {
        {"/t/plain?n=5", "gzip, deflate", 5, false},
        {"/t/plain?n=0", "gzip", 0, false},  // nothing written: the host's empty 200
        {"/t/plain?n=1000", "gzip", 1000, false},
        {"/t/big?n=1001", nullptr, 1001, false},
        {"/t/big?n=1001", "gzip, deflate", 1001, true},
        {"/t/big?n=20000", nullptr, 20000, false},
        {"/t/big?n=20000", "gzip", 20000, true},
        {"/t/big?n=20000", "gzip;q=0", 20000, false},
        {"/t/plain?n=3", nullptr, 3, false},
    };
    std::map<std::string, std::string> identity;  // the body of each target without gzip
    HttpConn conn(Port());
    ASSERT_TRUE(conn.Connected());
    for (const auto& k : kCases) {
        SCOPED_TRACE(std::string(k.target) + " " + (k.accept ? k.accept : "identity"));
        ASSERT_TRUE(conn.Get(k.target,
                             k.accept ? "Accept-Encoding: " + std::string(k.accept) + "\r\n" : ""));
        HttpResponse r;
        ASSERT_TRUE(conn.Read(r)) << r.raw;
        EXPECT_EQ(0u, r.raw.find("HTTP/1.1 200 OK\r\n")) << r.head;
        EXPECT_EQ(std::to_string(r.body.size()), r.Header("Content-Length"));
        EXPECT_EQ("", r.Header("Transfer-Encoding"));
        EXPECT_EQ("keep-alive", r.Header("Connection"));
        EXPECT_EQ(k.gzip ? "gzip" : "", r.Header("Content-Encoding"));
        // Bodies long enough to be offered to gzip depend on Accept-Encoding, whatever it said.
        EXPECT_EQ(k.length > 1000 ? "Accept-Encoding" : "", r.Header("Vary"));
        const std::string body = k.gzip ? Gunzip(r.body) : r.body;
        EXPECT_EQ(k.length, body.size());
        if (!k.gzip)
            identity.emplace(k.target, body);
        else
            EXPECT_EQ(identity[k.target], body);
        if (k.length > 0) {
            EXPECT_EQ("text/plain;charset=UTF-8", r.Header("Content-Type"));
        }
        EXPECT_TRUE(conn.Pending().empty()) << "bytes beyond the announced length";
    }
}

TEST_F(HostFramingTest, RedirectAndTwoSetCookieHeaders) {
    HttpResponse r = wh_test::Fetch(Port(), "/t/redirect");
    EXPECT_EQ(0u, r.raw.find("HTTP/1.1 302 Found\r\n")) << r.head;
    EXPECT_EQ("/t/plain?n=3", r.Header("Location"));
    EXPECT_EQ("/t/plain?n=3", r.body);
    EXPECT_EQ("12", r.Header("Content-Length"));
    EXPECT_EQ("text/html;charset=UTF-8", r.Header("Content-Type"));
    r = wh_test::Fetch(Port(), "/t/cookies");
    ASSERT_EQ(200, r.status);
    EXPECT_NE(std::string::npos,
              r.head.find("Set-Cookie: a=1; path=/\r\nSet-Cookie: b=2; path=/; httponly\r\n"))
        << r.head;
    EXPECT_EQ("two cookies", r.body);
}

TEST_F(HostFramingTest, EventStreamPiecesArriveApartAndTheConnectionIsReused) {
    for (const char* target : {"/t/stream", "/t/stream?emptylast=1"}) {
        SCOPED_TRACE(target);
        HttpConn conn(Port());
        ASSERT_TRUE(conn.Get(target, "Accept-Encoding: gzip\r\n"));
        HttpResponse r;
        ASSERT_TRUE(conn.ReadHead(r));
        EXPECT_EQ(200, r.status);
        EXPECT_EQ("chunked", r.Header("Transfer-Encoding"));
        EXPECT_EQ("text/event-stream", r.Header("Content-Type"));
        EXPECT_EQ("", r.Header("Content-Length"));
        EXPECT_EQ("", r.Header("Content-Encoding"));
        std::string piece;
        bool end = false;
        // The handler now waits for /t/release: this piece can only arrive unbuffered.
        ASSERT_TRUE(conn.ReadChunk(r, piece, end));
        EXPECT_EQ("data: one\n\n", piece);
        EXPECT_TRUE(conn.Pending().empty());
        HttpResponse rel = wh_test::Fetch(Port(), "/t/release");
        ASSERT_EQ("released", rel.body);
        // The empty piece written in between must not have ended the body.
        ASSERT_TRUE(conn.ReadChunk(r, piece, end)) << r.raw;
        EXPECT_EQ("data: two\n\n", piece);
        bool emptyLast = std::strstr(target, "emptylast") != nullptr;
        if (!emptyLast) {
            ASSERT_TRUE(conn.ReadChunk(r, piece, end));
            EXPECT_EQ("data: end\n\n", piece);
        }
        EXPECT_FALSE(conn.ReadChunk(r, piece, end));
        EXPECT_TRUE(end);
        std::string expected = "b\r\ndata: one\n\n\r\nb\r\ndata: two\n\n\r\n";
        expected += emptyLast ? "0\r\n\r\n" : "b\r\ndata: end\n\n\r\n0\r\n\r\n";
        EXPECT_EQ(expected, r.raw.substr(r.raw.find("\r\n\r\n") + 4));
        // Same connection, next request.
        ASSERT_TRUE(conn.Get("/t/plain?n=2"));
        HttpResponse next;
        ASSERT_TRUE(conn.Read(next));
        EXPECT_EQ("xx", next.body);
    }
}

TEST_F(HostFramingTest, EventStreamToAnHttp10ClientEndsWithTheConnection) {
    HttpConn conn(Port());
    ASSERT_TRUE(conn.Send("GET /t/stream HTTP/1.0\r\nHost: x\r\n\r\n"));
    HttpResponse r;
    ASSERT_TRUE(conn.ReadHead(r));
    EXPECT_EQ(200, r.status);
    EXPECT_EQ("", r.Header("Transfer-Encoding"));  // HTTP/1.0 knows no chunks
    EXPECT_EQ("", r.Header("Content-Length"));
    EXPECT_EQ("close", r.Header("Connection"));
    // The first piece arrives while the handler waits for /t/release.
    for (int i = 0; i < 100 && conn.Pending().size() < 11; ++i)
        conn.ClosedByPeer(20);
    EXPECT_EQ("data: one\n\n", conn.Pending());
    ASSERT_EQ("released", wh_test::Fetch(Port(), "/t/release").body);
    EXPECT_TRUE(conn.ClosedByPeer(5000));
    EXPECT_EQ("data: one\n\ndata: two\n\ndata: end\n\n", conn.Pending());
}

TEST_F(HostFramingTest, RecordHoldsPathQueryHeadersAndPeer) {
    HttpResponse r = wh_test::Fetch(Port(), "//t/record?a=1&b=%41",
                                    "Cookie: x=1; qvsessionid=abc\r\nReferer: http://ref/page\r\n"
                                    "X-Mixed-Case: kept\r\nLast-Event-ID: 42\r\n");
    ASSERT_EQ(200, r.status) << r.raw;
    const char* kLines[] = {"method=1\n",
                            "path=t/record\n",
                            "query=a=1&b=%41\n",
                            "cookie=x=1; qvsessionid=abc\n",
                            "referer=http://ref/page\n",
                            "peer=127.0.0.1\n",
                            "session=abc\n",
                            "x-mixed-case=kept\n",
                            "lower=0\n",
                            "lasteventid=42\n"};
    for (const char* line : kLines)
        EXPECT_NE(std::string::npos, r.body.find(line)) << line << " in\n" << r.body;
    EXPECT_NE(std::string::npos, r.body.find("host=127.0.0.1:" + std::to_string(Port()) + "\n"));
    EXPECT_NE(std::string::npos, r.body.find("docpath=" + s_tree->Path("webharbour/hdoc") + "\n"));

    HttpResponse dir = wh_test::Fetch(Port(), "/t/dir/sub/x%20y",
                                      "X-Forwarded-For: 203.0.113.5, 198.51.100.9\r\n");
    EXPECT_NE(std::string::npos, dir.body.find("path=t/dir/sub/x y\n")) << dir.body;
    // Behind a trusted proxy the peer is the last address the proxies added.
    EXPECT_NE(std::string::npos, dir.body.find("peer=198.51.100.9\n")) << dir.body;
}

TEST_F(HostFramingTest, HeadSilentStaticAndHiddenPaths) {
    HttpConn conn(Port());
    ASSERT_TRUE(conn.Send("HEAD /t/plain?n=7 HTTP/1.1\r\nHost: x\r\n\r\n"));
    HttpResponse head;
    ASSERT_TRUE(conn.Read(head, true));
    EXPECT_EQ("7", head.Header("Content-Length"));
    // An event stream asked for with HEAD: its head, and not one byte of chunks.
    ASSERT_TRUE(conn.Send("HEAD /t/forever HTTP/1.1\r\nHost: x\r\n\r\n"));
    ASSERT_TRUE(conn.Read(head, true));
    EXPECT_EQ("chunked", head.Header("Transfer-Encoding"));
    const struct {
        const char* target;
        int status;
        const char* body;
    } kCases[] = {
        {"/t/silent", 200, ""},
        {"/t/silent?status=404", 404, ""},
        {"/index.html", 200, "<p>static index</p>\n"},
        {"/tmp/anything.txt", 404, nullptr},
        {"/t/nothing-here", 404, nullptr},
    };
    for (const auto& k : kCases) {
        SCOPED_TRACE(k.target);
        ASSERT_TRUE(conn.Get(k.target));  // on the connection that answered HEAD
        HttpResponse r;
        ASSERT_TRUE(conn.Read(r));
        EXPECT_EQ(k.status, r.status);
        if (k.body != nullptr) {
            EXPECT_EQ(k.body, r.body);
        }
    }
}

}  // namespace
