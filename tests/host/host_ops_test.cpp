// webharbour for its operators over loopback: the security headers on every answer, /metrics
// and who may read it, refusals counted by reason, the library's standard output folded, and
// the access log: a line per request, cut by size.
#include <gtest/gtest.h>

#include <memory>

#include "tests/host/HostProcess.h"

namespace {

using wh_test::HttpResponse;

class HostOpsTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        s_tree = std::make_unique<wh_test::HostTree>();
        s_tree->WriteHostIni(
            "TrustedProxies=127.0.0.0/8\nStdoutFoldSeconds=1\nAccessLogMaxBytes=400\n");
        s_host = std::make_unique<wh_test::HostProcess>(*s_tree);
        ASSERT_TRUE(s_host->Start()) << s_host->Stderr();
        ASSERT_TRUE(s_host->WaitForOutput("Session End InitData", 10));
    }
    static void TearDownTestSuite() {
        EXPECT_EQ(0, s_host->Terminate(5)) << s_host->Stderr();
        s_host.reset();
        s_tree.reset();
    }
    static int Port() { return s_host->Port(); }
    // The value of one sample line of the metrics page, -1 when it is not there.
    static long long Sample(const std::string& page, const std::string& name) {
        std::string::size_type at = page.find("\n" + name + " ");
        return at == std::string::npos ? -1 : std::atoll(page.c_str() + at + name.size() + 2);
    }
    // The metrics page once `sample` has reached `value` (CivetWeb counts a request just after
    // its answer went out), or after a second.
    static std::string MetricsWhen(const std::string& sample, long long value) {
        std::string page;
        for (int i = 0; i < 50; ++i) {
            page = wh_test::Fetch(Port(), "/metrics").body;
            if (Sample(page, sample) >= value)
                break;
            ::usleep(20000);
        }
        return page;
    }
    static std::string Session() {
        HttpResponse login = wh_test::Fetch(Port(), "/t/login");
        std::string cookie = login.Header("Set-Cookie");
        return cookie.substr(0, cookie.find(';'));
    }

    static std::unique_ptr<wh_test::HostTree> s_tree;
    static std::unique_ptr<wh_test::HostProcess> s_host;
};

std::unique_ptr<wh_test::HostTree> HostOpsTest::s_tree;
std::unique_ptr<wh_test::HostProcess> HostOpsTest::s_host;

TEST_F(HostOpsTest, EveryAnswerCarriesTheSecurityHeaders) {
    for (const char* target : {"/t/plain?n=3", "/index.html", "/t/nothing-here", "/metrics"}) {
        SCOPED_TRACE(target);
        HttpResponse r = wh_test::Fetch(Port(), target);
        ASSERT_NE(0, r.status);
        const std::string csp = r.Header("Content-Security-Policy");
        EXPECT_NE(std::string::npos, csp.find("frame-ancestors 'none'")) << r.head;
        EXPECT_NE(std::string::npos, csp.find("script-src 'self';")) << csp;
        EXPECT_EQ(std::string::npos, csp.find("unsafe-inline")) << csp;
        EXPECT_EQ("nosniff", r.Header("X-Content-Type-Options"));
        EXPECT_EQ("same-origin", r.Header("Referrer-Policy"));
        EXPECT_EQ("", r.Header("Strict-Transport-Security"));  // plain HTTP: no HSTS
    }
}

TEST_F(HostOpsTest, MetricsCountRefusalsByReasonForAllowedAddressesOnly) {
    const std::string before = wh_test::Fetch(Port(), "/metrics").body;
    const std::string session = Session();
    const std::string page = "Referer: http://127.0.0.1:" + std::to_string(Port()) + "/p\r\n";
    wh_test::Fetch(Port(), "/t/guarded?x=1", "Cookie: qvsessionid=gone\r\n");        // time-out
    wh_test::Fetch(Port(), "/t/guarded?x=1", "Cookie: " + session + "\r\n" + page);  // no token
    wh_test::Fetch(Port(), "/t/guarded?x=1", "Cookie: " + session + "\r\n");         // no page
    const char* const kHandler2xx = "webharbour_requests_total{kind=\"handler\",status=\"2xx\"}";
    MetricsWhen(kHandler2xx, Sample(before, kHandler2xx) + 4);
    HttpResponse r = wh_test::Fetch(Port(), "/metrics");
    ASSERT_EQ(200, r.status) << r.raw;
    EXPECT_EQ("text/plain; version=0.0.4; charset=utf-8", r.Header("Content-Type"));
    const struct {
        const char* sample;
        long long grows;
    } kSamples[] = {
        {"webharbour_refusals_total{reason=\"session_timeout\"}", 1},
        {"webharbour_refusals_total{reason=\"csrf\"}", 2},
        {"webharbour_refusals_total{reason=\"verify_code\"}", 0},
        {kHandler2xx, 4},
    };
    for (const auto& k : kSamples) {
        EXPECT_EQ(Sample(before, k.sample) + k.grows, Sample(r.body, k.sample)) << k.sample;
    }
    EXPECT_GE(Sample(r.body, "webharbour_sessions"), 1);
    EXPECT_GE(Sample(r.body, "webharbour_token_files"), 1);  // each log-in issued a token
    EXPECT_GE(Sample(r.body, "webharbour_db_handle_wait_seconds_count"), 1);
    EXPECT_NE(std::string::npos, r.body.find("# TYPE webharbour_refusals_total counter\n"));
    // Through a trusted proxy for a client elsewhere: refused.
    HttpResponse outside = wh_test::Fetch(Port(), "/metrics", "X-Forwarded-For: 203.0.113.8\r\n");
    EXPECT_EQ(403, outside.status);
    EXPECT_EQ(std::string::npos, outside.body.find("webharbour_"));
}

TEST_F(HostOpsTest, TheLibrarysRepeatedOutputLinesAreFolded) {
    const std::string cookie = "Cookie: " + Session() + "\r\n";
    const int kRepeats = 25;
    for (int i = 0; i < kRepeats; ++i)  // the filter prints every callback name on a line
        wh_test::Fetch(Port(), "/t/guarded?callbackparam=%3Cscript%3Efold(7)%3C/script%3E", cookie);
    const std::string line = "<script>fold(7)</script>", summary = line + " [+";
    long long shown = 0, folded = 0;
    for (int i = 0; i < 60 && shown + folded < kRepeats; ++i) {
        ::usleep(100000);
        const std::string out = s_host->Stdout();
        shown = 0, folded = 0;
        for (size_t p = out.find(line + "\n"); p != std::string::npos;
             p = out.find(line + "\n", p + 1))
            ++shown;
        for (size_t p = out.find(summary); p != std::string::npos; p = out.find(summary, p + 1)) {
            const size_t count = p + summary.size(), end = out.find(" more in 1 s]\n", count);
            if (end != std::string::npos)
                folded += std::atoll(out.substr(count, end - count).c_str());
        }
    }
    EXPECT_EQ(kRepeats, shown + folded);
    EXPECT_LE(shown, 3) << "one line per interval, not one per request";
}

TEST_F(HostOpsTest, AccessLogHasALinePerRequestAndIsCutBySize) {
    wh_test::Fetch(Port(), "/t/plain?n=4&secret=pw");
    // A decoded line break or blank in the path must not split or shift the line's fields.
    wh_test::Fetch(Port(), "/t/dir/a%0Aforged%20line");
    wh_test::Fetch(Port(), "/index.html");
    for (int i = 0; i < 30; ++i)
        wh_test::Fetch(Port(), "/t/plain?n=1");
    // A line is written just after its answer went out and flushed every 200 ms: wait for all.
    const std::string cat = "cat " + s_tree->Path("middle/log") + "/webharbour_access*";
    const std::string plain = " 127.0.0.1 GET /t/plain 200 ";
    std::string log;
    size_t lines = 0;
    auto complete = [&] {
        return lines >= 31 && log.find("/index.html") != std::string::npos &&
               log.find("forged") != std::string::npos;
    };
    for (int i = 0; i < 100 && !complete(); ++i, ::usleep(20000)) {
        log = ws_test::RunAndCapture("/bin/sh", {"-c", cat});
        lines = 0;
        for (size_t p = log.find(plain); p != std::string::npos; p = log.find(plain, p + 1))
            ++lines;
    }
    EXPECT_LE(31u, lines) << "a line lost at a cut:\n" << log;
    EXPECT_NE(std::string::npos, log.find(" 127.0.0.1 GET /index.html 200 - ")) << log;
    EXPECT_EQ(std::string::npos, log.find("secret")) << "query strings stay out of the log";
    EXPECT_NE(std::string::npos, log.find(" GET /t/dir/a%0Aforged%20line 200 ")) << log;
    EXPECT_EQ(std::string::npos, log.find("\nforged")) << log;
    const std::string listing = ws_test::RunAndCapture(
        "/bin/sh", {"-c", "cd " + s_tree->Path("middle/log") + " && ls webharbour_access*"});
    EXPECT_NE(std::string::npos, listing.find("_2.log")) << listing;
}

}  // namespace
