// webharbour under many clients at once: answers stay whole and in order on every kept-alive
// connection, and concurrent event streams never exceed their bound.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "tests/host/HostProcess.h"

namespace {

using wh_test::HttpConn;
using wh_test::HttpResponse;

class HostLoadTest : public ::testing::Test {
protected:
    wh_test::HostTree tree;
    wh_test::HostProcess host{tree};
};

TEST_F(HostLoadTest, ManyKeptAliveClientsGetTheirOwnAnswers) {
    tree.WriteHostIni("WorkerThreads=24\n");
    ASSERT_TRUE(host.Start()) << host.Stderr();
    const int kClients = 12, kRequests = 40;
    std::atomic<int> good{0};
    std::vector<std::string> failures(kClients);
    std::vector<std::thread> clients;
    for (int c = 0; c < kClients; ++c) {
        clients.emplace_back([&, c] {
            HttpConn conn(host.Port());
            for (int i = 0; i < kRequests; ++i) {
                // Each answer's length and letter name its client and request, so an answer
                // delivered to the wrong connection or cut short cannot pass.
                int n = 1 + (c * kRequests + i) % 1500;
                char letter = static_cast<char>('a' + c);
                std::string target = "/t/plain?n=" + std::to_string(n) + "&c=" + letter;
                HttpResponse r;
                if (!conn.Get(target) || !conn.Read(r) || r.status != 200 ||
                    r.body != std::string(static_cast<size_t>(n), letter)) {
                    failures[c] = target + " -> " + r.head;
                    return;
                }
                ++good;
            }
        });
    }
    for (auto& t : clients)
        t.join();
    for (const std::string& f : failures)
        EXPECT_EQ("", f);
    EXPECT_EQ(kClients * kRequests, good.load());
    EXPECT_EQ(0, host.Terminate(5)) << host.Stderr();
}

// Beyond the bound a stream gets 503 (not a chunked head), ordinary requests still have threads,
// and a client that goes away frees its slot (its handler sees the failed write).
TEST_F(HostLoadTest, ConcurrentStreamsNeverExceedTheBound) {
    tree.WriteHostIni("WorkerThreads=16\nMaxEventStreams=3\n");
    ASSERT_TRUE(host.Start()) << host.Stderr();
    const int kTries = 10;
    std::vector<std::unique_ptr<HttpConn>> conns;
    for (int i = 0; i < kTries; ++i)
        conns.push_back(std::make_unique<HttpConn>(host.Port()));
    std::vector<HttpResponse> heads(kTries);
    std::vector<std::thread> openers;
    for (int i = 0; i < kTries; ++i)
        openers.emplace_back([&, i] {
            if (conns[i]->Get("/t/forever"))
                conns[i]->ReadHead(heads[i]);
        });
    for (auto& t : openers)
        t.join();
    int first = -1, open = 0, refused = 0;
    for (int i = 0; i < kTries; ++i) {
        if (heads[i].status == 200 && open++ == 0)
            first = i;
        refused += heads[i].status == 503 ? 1 : 0;
        EXPECT_EQ(heads[i].status == 200 ? "chunked" : "", heads[i].Header("Transfer-Encoding"));
    }
    EXPECT_EQ(3, open);
    EXPECT_EQ(kTries - 3, refused);
    ASSERT_GE(first, 0);
    EXPECT_EQ("xx", wh_test::Fetch(host.Port(), "/t/plain?n=2").body);
    conns[first].reset();
    int status = 0;
    for (int i = 0; i < 40 && status != 200; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        HttpConn again(host.Port());
        HttpResponse c;
        if (again.Get("/t/forever"))
            again.ReadHead(c);
        status = c.status;
    }
    EXPECT_EQ(200, status);
    EXPECT_EQ(0, host.Terminate(2.0)) << host.Stderr();
}

}  // namespace
