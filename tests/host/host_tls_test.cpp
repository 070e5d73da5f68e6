// webharbour over HTTPS with a certificate the fixture makes: TLS 1.2 and 1.3 only, Secure
// cookies and Strict-Transport-Security, the redirect from the plain port, and the refusal to
// start - never a fall-back to plain HTTP - when the certificate or the key is bad.
#include <openssl/ssl.h>
#include <sys/stat.h>

#include <gtest/gtest.h>

#include "tests/host/HostProcess.h"

namespace {

using wh_test::HttpConn;
using wh_test::HttpResponse;

class HostTlsTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(tree.MakeCertificate()); }
    void WriteSsl(const std::string& lines) { tree.WriteHostIni("", true, "", "[ssl]\n" + lines); }
    wh_test::HostTree tree;
};

TEST_F(HostTlsTest, ServesHttpsWithSecureCookiesAndRedirectsThePlainPort) {
    WriteSsl("CertificateFile=tls/cert.pem\nKeyFile=tls/key.pem\nRedirectPort=0\n");
    wh_test::HostProcess host(tree);
    ASSERT_TRUE(host.Start()) << host.Stderr();
    ASSERT_TRUE(host.WaitForOutput("Session End InitData", 10));
    {
        HttpConn conn(host.Port(), true);
        ASSERT_TRUE(conn.Connected());
        EXPECT_EQ("TLSv1.3", conn.TlsVersion());
        ASSERT_TRUE(conn.Get("/t/login"));
        HttpResponse login;
        ASSERT_TRUE(conn.Read(login));
        EXPECT_EQ(200, login.status);
        EXPECT_EQ("max-age=31536000", login.Header("Strict-Transport-Security"));
        ASSERT_EQ(2, login.Count("Set-Cookie")) << login.head;
        for (const auto& h : login.headers) {
            if (h.first == "Set-Cookie") {  // the library's token cookie as well as the module's
                EXPECT_EQ("; Secure", h.second.substr(h.second.size() - 8)) << h.second;
            }
        }
        ASSERT_TRUE(conn.Get("/index.html"));  // a file CivetWeb serves itself
        HttpResponse file;
        ASSERT_TRUE(conn.Read(file));
        EXPECT_EQ("<p>static index</p>\n", file.body);
        EXPECT_EQ("max-age=31536000", file.Header("Strict-Transport-Security"));
    }
    const struct {
        int maxVersion;
        bool connects;
    } kVersions[] = {{TLS1_VERSION, false}, {TLS1_1_VERSION, false}, {TLS1_2_VERSION, true}};
    for (const auto& v : kVersions) {
        HttpConn conn(host.Port(), true, v.maxVersion);
        EXPECT_EQ(v.connects, conn.Connected()) << std::hex << v.maxVersion;
    }
    // Plain HTTP on the HTTPS port gets no answer at all.
    EXPECT_EQ(0, wh_test::Fetch(host.Port(), "/t/plain?n=2").status);
    const std::string port = std::to_string(host.Port());
    const std::string out = host.Stdout();
    const std::string mark = "webharbour: port ";
    ASSERT_NE(std::string::npos, out.find(mark)) << out;
    const int plain = std::atoi(out.c_str() + out.find(mark) + mark.size());
    const struct {
        const char* host;
        int status;
        std::string location;
    } kRedirects[] = {
        {"localhost:8080", 308, "https://localhost:" + port + "/t/plain?n=2"},
        {"[::1]", 308, "https://[::1]:" + port + "/t/plain?n=2"},
        {"evil.example\"><script>", 400, ""},
    };
    for (const auto& k : kRedirects) {
        HttpConn conn(plain);
        conn.Send(std::string("GET /t/plain?n=2 HTTP/1.1\r\nHost: ") + k.host + "\r\n\r\n");
        HttpResponse r;
        ASSERT_TRUE(conn.Read(r));
        EXPECT_EQ(k.status, r.status) << k.host;
        EXPECT_EQ(k.location, r.Header("Location")) << k.host;
        EXPECT_EQ("", r.Header("Strict-Transport-Security"));
    }
    EXPECT_EQ(0, host.Terminate(5)) << host.Stderr();
}

TEST_F(HostTlsTest, BadCertificatesAndKeysStopTheStart) {
    ws_test::WriteFile(tree.Path("tls/garbage.pem"), "-----BEGIN CERTIFICATE-----\nnot base64\n");
    ws_test::WriteFile(tree.Path("tls/secret.pem"), ws_test::ReadFile(tree.Path("tls/key.pem")));
    ::chmod(tree.Path("tls/secret.pem").c_str(), 0);
    ws_test::RunAndCapture("/usr/bin/openssl",
                           {"genpkey", "-algorithm", "EC", "-pkeyopt", "ec_paramgen_curve:P-256",
                            "-out", tree.Path("tls/other.pem")});
    ::chmod(tree.Path("tls/other.pem").c_str(), 0644);
    const bool root = ::geteuid() == 0 && !wh_test::TestServingUser().drop;
    const struct {
        const char* lines;
        const char* message;
    } kCases[] = {
        {"CertificateFile=tls/garbage.pem\nKeyFile=tls/key.pem\n", "holds no certificate"},
        {"CertificateFile=tls/key.pem\nKeyFile=tls/key.pem\n", "holds no certificate"},
        {"CertificateFile=tls/cert.pem\nKeyFile=tls/cert.pem\n",
         "holds no unencrypted private key"},
        {"CertificateFile=tls/cert.pem\nKeyFile=tls/other.pem\n", "does not belong"},
        {"CertificateFile=tls/cert.pem\nKeyFile=tls/secret.pem\n",
         root ? nullptr : "KeyFile: cannot read"},
        {"CertificateFile=tls/cert.pem\nKeyFile=tls/gone.pem\n", "KeyFile: cannot read"},
    };
    for (const auto& k : kCases) {
        if (k.message == nullptr)
            continue;  // root reads any file: unreadable cannot be made
        SCOPED_TRACE(k.lines);
        WriteSsl(k.lines);
        wh_test::HostProcess p(tree);
        EXPECT_FALSE(p.Start());
        EXPECT_EQ(2, p.WaitExit(10));
        EXPECT_NE(std::string::npos, p.Stderr().find(k.message)) << p.Stderr();
        EXPECT_EQ(std::string::npos, p.Stdout().find("listening")) << "no plain-HTTP fall-back";
    }
}

}  // namespace
