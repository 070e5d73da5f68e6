// Tests of reading webharbour/middle.ini, the command line and the client-address rule.
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
    EXPECT_EQ(tree.Root() + "/webharbour/hdoc", c.docRoot);
    EXPECT_EQ(tree.Root() + "/middle/log", c.logDir);
}

TEST_F(HostConfigTest, ReadsEveryKey) {
    wh::HostConfig c;
    std::string error;
    ASSERT_TRUE(
        Load("[main]\nListenPort=9000\nListenAddress=127.0.0.1\nWorkerThreads=8\n"
             "MaxEventStreams=3\nMaxBodyBytes=2048\nKeepAliveMs=0\n"
             "RequestTimeoutMs=500\nAccessLog=0\nTrustedProxies=10.0.0.1, 10.0.0.2\n"
             "[modules]\nb=/opt/x/libb.so /api/\na=liba.so /\n",
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
    EXPECT_EQ((std::vector<std::string>{"10.0.0.1", "10.0.0.2"}), c.trustedProxies);
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
    };
    for (const auto& k : kCases) {
        wh::HostConfig c;
        std::string error;
        EXPECT_FALSE(Load(k.text, c, error)) << k.text;
        EXPECT_NE(std::string::npos, error.find(k.mentions)) << k.text << " -> " << error;
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

TEST_F(HostConfigTest, ClientAddressTrustsOnlyConfiguredProxies) {
    wh::HostConfig c;
    c.trustedProxies = {"10.0.0.1", "10.0.0.2"};
    const struct {
        const char* peer;
        const char* forwarded;
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
    };
    for (const auto& k : kCases) {
        EXPECT_EQ(k.expected, wh::ClientAddress(c, k.peer, k.forwarded))
            << k.peer << " / " << k.forwarded;
    }
}

}  // namespace
