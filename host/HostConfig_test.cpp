// Tests of reading webharbour/middle.ini, the command line, address ranges and the
// client-address rule.
#include "host/HostConfig.h"

#include <gtest/gtest.h>

#include "tests/support/TestTree.h"

namespace {

class HostConfigTest : public ::testing::Test {
protected:
    ws_test::TempTree tree{"hostconfig"};
    std::string Ini() const { return tree.Path("webharbour/middle.ini"); }
    bool Load(const std::string& text, wh::HostConfig& out, std::string& error) {
        ws_test::WriteFile(Ini(), text);
        return wh::LoadHostConfig(tree.Root(), Ini(), out, error);
    }
};

TEST_F(HostConfigTest, MissingFileKeepsEveryDefault) {
    wh::HostConfig c;
    std::string error;
    ASSERT_TRUE(wh::LoadHostConfig(tree.Root(), tree.Path("none.ini"), c, error)) << error;
    EXPECT_EQ(8121, c.port);
    EXPECT_EQ(64, c.workerThreads);
    EXPECT_EQ(16, c.maxEventStreams);
    EXPECT_EQ(1048576, c.maxBodyBytes);
    EXPECT_TRUE(c.modules.empty());
    EXPECT_FALSE(c.tls.Enabled());
    EXPECT_EQ(tree.Root() + "/webharbour/hdoc", c.docRoot);
    EXPECT_EQ(tree.Root() + "/middle/log", c.logDir);
}

TEST_F(HostConfigTest, ReadsEveryKey) {
    ws_test::WriteFile(tree.Path("c.pem"), "x");
    wh::HostConfig c;
    std::string error;
    ASSERT_TRUE(
        Load("[main]\nListenPort=9000\nListenAddress=127.0.0.1\nWorkerThreads=8\n"
             "MaxEventStreams=3\nMaxBodyBytes=2048\nKeepAliveMs=0\n"
             "RequestTimeoutMs=500\nAccessLog=0\nTrustedProxies=10.0.0.1, 10.0.0.2\n"
             "[modules]\nb=/opt/x/libb.so /api/\na=liba.so /\n"
             "[ssl]\nCertificateFile=c.pem\nRedirectPort=0\nHstsMaxAge=60\n",
             c, error))
        << error;
    EXPECT_EQ(9000, c.port);
    EXPECT_EQ("127.0.0.1", c.listenAddress);
    EXPECT_EQ(8, c.workerThreads);
    EXPECT_EQ(3, c.maxEventStreams);
    EXPECT_EQ(2048, c.maxBodyBytes);
    EXPECT_EQ(0, c.keepAliveMs);
    EXPECT_EQ(500, c.requestTimeoutMs);
    EXPECT_FALSE(c.accessLog);
    EXPECT_TRUE(wh::InRanges(c.trustedProxies, "10.0.0.2"));
    EXPECT_FALSE(wh::InRanges(c.trustedProxies, "10.0.0.3"));
    EXPECT_TRUE(wh::InRanges(c.metricsAllow, "127.0.0.1"));  // the default: loopback alone
    EXPECT_TRUE(wh::InRanges(c.metricsAllow, "::1"));
    EXPECT_FALSE(wh::InRanges(c.metricsAllow, "10.0.0.1"));
    EXPECT_EQ(tree.Root() + "/c.pem", c.tls.certificateFile);
    EXPECT_EQ(c.tls.certificateFile, c.tls.keyFile);  // the key in the certificate's file
    EXPECT_EQ(0, c.tls.redirectPort);
    EXPECT_EQ(60, c.tls.hstsMaxAge);
    ASSERT_EQ(2u, c.modules.size());
    // Sorted by name; relative files lie below lib/, prefixes lose trailing slashes.
    EXPECT_EQ(tree.Root() + "/lib/liba.so", c.modules[0].path);
    EXPECT_EQ("", c.modules[0].prefix);
    EXPECT_EQ("/opt/x/libb.so", c.modules[1].path);
    EXPECT_EQ("/api", c.modules[1].prefix);
}

TEST_F(HostConfigTest, RefusesBadValuesNamingTheKey) {
    const struct {
        const char* text;
        const char* mentions;
    } kCases[] = {
        {"[main]\nListenPort=80x\n", "ListenPort"},
        {"[main]\nListenPort=70000\n", "ListenPort"},
        {"[main]\nWorkerThreads=-4\n", "WorkerThreads"},
        {"[main]\nMaxBodyBytes=lots\n", "MaxBodyBytes"},
        {"[main]\nAccessLog=yes\n", "AccessLog"},
        {"[main]\nKeepAliveMs=1501\n", "KeepAliveMs"},
        {"[main]\nWorkerThreads=8\nMaxEventStreams=8\n", "must be less than WorkerThreads"},
        {"[modules]\nc=libconsole.so\n", "[modules] c"},
        {"[modules]\nc=libconsole.so console\n", "[modules] c"},
        {"[modules]\na=liba.so /x\nb=libb.so /x/\n", "both serve"},
        {"ListenPort=1\n", "middle.ini"},
        {"[main]\nTrustedProxies=10.0.0.1 proxy.example\n", "TrustedProxies: \"proxy.example\""},
        {"[main]\nTrustedProxies=10.0.0.1/8\n", "TrustedProxies"},  // host bits set
        {"[main]\nMetricsAllow=::1/129\n", "MetricsAllow"},
        {"[main]\nAllowRoot=yes\n", "AllowRoot"},
        {"[ssl]\nCertificateFile=/no/such/cert.pem\n", "[ssl] CertificateFile: cannot read"},
        {"[ssl]\nKeyFile=key.pem\n", "[ssl] KeyFile: is set but CertificateFile is not"},
        {"[ssl]\nCertficateFile=cert.pem\n", "[ssl] CertficateFile: is not a setting"},
        {"[ssl]\nCertificateFile=/etc/hostname\nRedirectPort=http\n", "RedirectPort"},
    };
    for (const auto& k : kCases) {
        wh::HostConfig c;
        std::string error;
        EXPECT_FALSE(Load(k.text, c, error)) << k.text;
        EXPECT_NE(std::string::npos, error.find(k.mentions)) << k.text << " -> " << error;
    }
}

// The library's reader takes a line in pieces of 1023 bytes: a longer line of ours is refused
// with its key named, never cut or split into a forged setting.
TEST_F(HostConfigTest, RefusesLinesTheReaderWouldCut) {
    std::string proxies;
    for (int i = 0; proxies.size() < 1200; ++i)
        proxies += "10.1." + std::to_string(i / 250) + "." + std::to_string(i % 250) + ", ";
    const std::string tail = "AllowRoot=1";  // what a cut line would turn into a setting
    const struct {
        std::string text;
        bool ok;
    } kCases[] = {
        {"[main]\nTrustedProxies=" + proxies + tail + "\n", false},
        {"[main]\nTrustedProxies=" + std::string(1023 - 15, ' ') + "\n", true},
        {"[main]\nTrustedProxies=" + std::string(1024 - 15, ' ') + "\r\n", false},
    };
    for (const auto& k : kCases) {
        wh::HostConfig c;
        std::string error;
        EXPECT_EQ(k.ok, Load(k.text, c, error)) << error;
        if (!k.ok) {
            EXPECT_NE(std::string::npos, error.find("line 2 ([main] TrustedProxies)")) << error;
            EXPECT_FALSE(c.allowRoot);
        }
    }
}

TEST_F(HostConfigTest, CommandLine) {
    const struct {
        std::vector<std::string> args;
        bool ok;
        int port;
        bool help;
    } kCases[] = {
        {{}, true, -1, false},
        {{"--port", "0"}, true, 0, false},
        {{"-p", "8200"}, true, 8200, false},
        {{"--help"}, true, -1, true},
        {{"--allow-root", "-p", "1"}, true, 1, false},
        {{"--port"}, false, -1, false},
        {{"--port", "65536"}, false, -1, false},
        {{"--port", "12ab"}, false, -1, false},
        {{"--verbose"}, false, -1, false},
    };
    for (const auto& k : kCases) {
        wh::CommandLine cmd;
        std::string error;
        EXPECT_EQ(k.ok, wh::ParseCommandLine(k.args, cmd, error))
            << ::testing::PrintToString(k.args);
        if (k.ok) {
            EXPECT_EQ(k.port, cmd.port);
            EXPECT_EQ(k.help, cmd.help);
        } else {
            EXPECT_FALSE(error.empty());
        }
    }
}

TEST_F(HostConfigTest, AddressRanges) {
    const struct {
        const char* range;
        const char* address;
        bool in;
    } kCases[] = {
        {"10.0.0.0/8", "10.255.1.2", true},
        {"10.0.0.0/8", "11.0.0.1", false},
        {"192.168.4.0/22", "192.168.7.255", true},
        {"192.168.4.0/22", "192.168.8.0", false},
        {"0.0.0.0/0", "203.0.113.9", true},
        {"0.0.0.0/0", "2001:db8::1", false},
        {"fd00::/8", "fd12:3456::1", true},
        {"fd00::/8", "fe80::1", false},
        {"::1", "::1", true},
        {"::1", "127.0.0.1", false},
        {"10.0.0.0/8", "::ffff:10.1.2.3", true},  // the mapped form of a v4 peer
        {"2001:db8::/127", "2001:db8::1", true},
        {"2001:db8::/127", "2001:db8::2", false},
    };
    for (const auto& k : kCases) {
        std::vector<wh::AddressRange> ranges;
        std::string bad;
        ASSERT_TRUE(wh::ParseRangeList(k.range, ranges, bad)) << k.range;
        EXPECT_EQ(k.in, wh::InRanges(ranges, k.address)) << k.range << " " << k.address;
    }
    for (const char* bad : {"10.0.0.1/33", "10.0.0.0/", "/8", "10.0.0.0/8x", "1.2.3", "::1/200",
                            "10.0.0.0/-1", "host", "10.0.0.1:80"}) {
        wh::AddressRange r;
        EXPECT_FALSE(wh::ParseRange(bad, r)) << bad;
    }
}

TEST_F(HostConfigTest, ClientAddressTrustsOnlyConfiguredProxies) {
    std::vector<wh::AddressRange> proxies;
    std::string bad;
    ASSERT_TRUE(wh::ParseRangeList("10.0.0.1 10.0.0.2, fd00::/8", proxies, bad));
    const std::string longChain = [] {
        std::string s = "198.51.100.4";
        for (int i = 0; i < 40; ++i)
            s += ", 10.0.0.2";
        return s;
    }();
    const struct {
        const char* peer;
        std::string forwarded;
        const char* expected;
    } kCases[] = {
        {"192.0.2.7", "", "192.0.2.7"},
        {"192.0.2.7", "203.0.113.9", "192.0.2.7"},  // not a proxy of ours: header ignored
        {"10.0.0.1", "", "10.0.0.1"},
        {"10.0.0.1", "203.0.113.9", "203.0.113.9"},
        {"10.0.0.1", "1.1.1.1, 203.0.113.9", "203.0.113.9"},  // the left part can be forged
        {"10.0.0.1", "203.0.113.9, 10.0.0.2", "203.0.113.9"},
        {"10.0.0.1", "10.0.0.2,10.0.0.1", "10.0.0.2"},
        {"10.0.0.1", " , ", "10.0.0.1"},
        {"fd00::7", "2001:db8::9", "2001:db8::9"},
        {"::ffff:10.0.0.1", "203.0.113.9", "203.0.113.9"},
        {"10.0.0.1", "203.0.113.9:4711, [2001:db8::5]:443", "2001:db8::5"},
        {"10.0.0.1", "0203.000.113.009", "10.0.0.1"},  // not an address: stop at the proxy
        // Hostile chains: junk, markup or a forged hop end the walk at the last trusted hop.
        {"10.0.0.1", "203.0.113.9, <script>", "10.0.0.1"},
        {"10.0.0.1", "1.1.1.1, evil, 10.0.0.2", "10.0.0.2"},
        {"10.0.0.1", "203.0.113.9,,,\t, 10.0.0.2", "203.0.113.9"},
        {"10.0.0.1", std::string(5000, ','), "10.0.0.1"},
        {"10.0.0.1", longChain, "10.0.0.2"},  // beyond 32 hops nothing is believed
    };
    for (const auto& k : kCases) {
        EXPECT_EQ(k.expected, wh::ClientAddress(proxies, k.peer, k.forwarded))
            << k.peer << " / " << k.forwarded;
    }
}

}  // namespace
