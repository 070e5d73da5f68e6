// Two webharbour processes with the console, each from its own installation tree and port, on one
// PostgreSQL: what one host does, the other sees. The trees configure the engine in their
// middle/Conf/dbconfig.ini (the environment is cleared), and share the CSRF token folder
// webharbour/hdoc/tmp, as the README asks of hosts behind one address.
#include <json/json.h>
#include <unistd.h>

#include <chrono>
#include <memory>

#include "tests/host/HostProcess.h"
#include "tests/support/PgServer.h"

namespace {

using wh_test::HttpResponse;

const char* const kCode = "q4zt";

struct CHost {
    std::unique_ptr<wh_test::HostTree> tree;
    std::unique_ptr<wh_test::HostProcess> process;
    int Port() const { return process->Port(); }
};

class TwoHosts : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        ASSERT_NO_FATAL_FAILURE(ws_test::UseEngine("postgres"));
        const std::string engine =
            "[main]\nListenPort=8123\n[bsapi]\nBSAPI_ENGINE=postgres\n"
            "BSAPI_PG_DSN=" +
            ws_test::PgServer::Shared().Dsn() + "\n";
        ::unsetenv("BSAPI_ENGINE");  // the hosts and tools read their installation's file
        ::unsetenv("BSAPI_PG_DSN");
        for (CHost& h : s_hosts) {
            h.tree = std::make_unique<wh_test::HostTree>();
            for (const char* tool : {"bsctl", "consoleuser", "eventgen"})
                ws_test::CopyExecutable(std::string(BUILD_TREE) + "/bin/" + tool, Tool(h, tool));
            ws_test::WriteFile(h.tree->Path("middle/Conf/middle.ini"),
                               "[main]\nloglevel=0\n[safe]\ntokeninterval=60\ncheckverifycode=1\n"
                               "checktoken=1\n");
            ws_test::WriteFile(h.tree->Path("middle/Conf/dbconfig.ini"), engine);
            h.tree->WriteHostIni("", false, "console=libconsole.so /api\n");
        }
        const std::string tokens = s_hosts[1].tree->Path("webharbour/hdoc/tmp");
        ws_test::RemoveTree(tokens);
        ASSERT_EQ(::symlink(s_hosts[0].tree->Path("webharbour/hdoc/tmp").c_str(), tokens.c_str()),
                  0);
        for (const std::vector<std::string>& step :
             std::vector<std::vector<std::string>>{{"bsctl", "code", "seed", kCode},
                                                   {"bsctl", "company", "add", "demo"},
                                                   {"bsctl", "login", "add", "admin", "demo"},
                                                   {"consoleuser", "set", "admin", "right-pass"}}) {
            int status = -1;
            std::string out = ws_test::RunAndCapture(
                Tool(s_hosts[0], step[0]), std::vector<std::string>(step.begin() + 1, step.end()),
                &status);
            ASSERT_EQ(status, 0) << step[0] << " " << step[1] << ": " << out;
        }
        for (CHost& h : s_hosts) {
            h.process = std::make_unique<wh_test::HostProcess>(*h.tree);
            ASSERT_TRUE(h.process->Start()) << h.process->Stdout() << h.process->Stderr();
        }
    }
    static void TearDownTestSuite() {
        for (CHost& h : s_hosts) {
            if (h.process) {
                EXPECT_EQ(0, h.process->Terminate(10)) << h.process->Stderr();
            }
            h.process.reset();
            h.tree.reset();
        }
    }
    static std::string Tool(const CHost& h, const std::string& name) {
        return h.tree->Path("bin/" + name);
    }
    // One request to `h` from a page of that host, with `cookies` (and a form body for a POST).
    static HttpResponse Call(const CHost& h, const std::string& target, const std::string& cookies,
                             const std::string* body = nullptr) {
        const std::string origin = "127.0.0.1:" + std::to_string(h.Port());
        std::string req = std::string(body ? "POST " : "GET ") + target +
                          " HTTP/1.1\r\nHost: " + origin + "\r\nReferer: http://" + origin +
                          "/console/app.html\r\nConnection: close\r\n";
        if (!cookies.empty())
            req += "Cookie: " + cookies + "\r\n";
        if (body != nullptr) {
            req += "Content-Type: application/x-www-form-urlencoded\r\nContent-Length: " +
                   std::to_string(body->size()) + "\r\n\r\n" + *body;
        } else {
            req += "\r\n";
        }
        wh_test::HttpConn conn(h.Port());
        HttpResponse res;
        EXPECT_TRUE(conn.Send(req) && conn.Read(res));
        return res;
    }
    static Json::Value Parse(const HttpResponse& res) {
        Json::Value v;
        std::unique_ptr<Json::CharReader> r(Json::CharReaderBuilder().newCharReader());
        EXPECT_TRUE(r->parse(res.body.data(), res.body.data() + res.body.size(), &v, nullptr))
            << res.body;
        return v;
    }
    static Json::Value Post(const CHost& h, const std::string& target, const std::string& cookies,
                            const std::string& body) {
        return Parse(Call(h, target, cookies, &body));
    }
    static Json::Value Get(const CHost& h, const std::string& target, const std::string& cookies) {
        return Parse(Call(h, target, cookies));
    }
    // "name=value" of the Set-Cookie header for `name`.
    static std::string Cookie(const HttpResponse& res, const std::string& name) {
        for (const auto& hd : res.headers) {
            if (hd.first == "Set-Cookie" && hd.second.compare(0, name.size() + 1, name + "=") == 0)
                return hd.second.substr(0, hd.second.find(';'));
        }
        return "";
    }
    static std::string Token(const CHost& h) {
        return Cookie(Call(h, "/api/token", ""), "CSRF-TOKEN");
    }
    // A log-in on `h` with the code form `key`; the answer.
    static Json::Value LogIn(const CHost& h, const std::string& key, HttpResponse* res = nullptr) {
        const std::string body = std::string("user=admin&password=right-pass&code=") + kCode;
        HttpResponse r = Call(h, "/api/login", key + "; " + Token(h), &body);
        if (res != nullptr)
            *res = r;
        return Parse(r);
    }
    static std::string CodeKey(const CHost& h) {
        return Cookie(Call(h, "/api/code", ""), "qv_codekey");
    }

    static CHost s_hosts[2];
};

CHost TwoHosts::s_hosts[2];

TEST_F(TwoHosts, SessionCompaniesAndTokensCrossBetweenHosts) {
    const CHost &a = s_hosts[0], &b = s_hosts[1];
    HttpResponse res;
    ASSERT_EQ(LogIn(a, CodeKey(a), &res)["status"].asString(), "success") << res.body;
    const std::string session = Cookie(res, "qvsessionid");
    ASSERT_FALSE(session.empty());
    Json::Value state = Get(b, "/api/state", session);
    EXPECT_TRUE(state["data"]["loggedIn"].asBool()) << state.toStyledString();
    EXPECT_EQ(state["data"]["user"].asString(), "admin");

    // A company added on one host is listed by the other; a change on the second host passes
    // with a token the first one handed out, as the hosts share the token folder.
    ASSERT_EQ(
        Post(a, "/api/company/save", session + "; " + Token(a), "id=north&params=k%3Dv")["status"]
            .asString(),
        "success");
    bool listed = false;
    Json::Value list = Get(b, "/api/companies", session);
    for (const Json::Value& c : list["data"])
        listed = listed || (c["id"].asString() == "north" && c["params"]["k"].asString() == "v");
    EXPECT_TRUE(listed) << list.toStyledString();
    Json::Value v = Post(b, "/api/company/delete", session + "; " + Token(a), "id=north");
    EXPECT_EQ(v["status"].asString(), "success") << v.toStyledString();
    for (const Json::Value& c : Get(a, "/api/companies", session)["data"])
        EXPECT_NE(c["id"].asString(), "north");
}

// A host keeps the codes it handed out in its memory: the code of a form is accepted once, by the
// host that drew it, and never again on either host. (Behind one address, the log-in must reach
// the host that drew the picture: route by client, see README.)
TEST_F(TwoHosts, HandedOutCodeIsAcceptedOnceAcrossBothHosts) {
    const CHost &a = s_hosts[0], &b = s_hosts[1];
    const std::string key = CodeKey(a);
    ASSERT_FALSE(key.empty());
    int accepted = 0;
    for (const CHost* h : {&b, &a, &a, &b}) {
        Json::Value v = LogIn(*h, key);
        accepted += v["status"].asString() == "success";
        if (v["status"].asString() != "success") {
            EXPECT_EQ(v["errmsg"].asString(), "验证码错误") << v.toStyledString();
        }
    }
    EXPECT_EQ(accepted, 1);
}

TEST_F(TwoHosts, EventPushedThroughOneHostReachesAStreamOnTheOther) {
    const CHost &a = s_hosts[0], &b = s_hosts[1];
    HttpResponse res;
    ASSERT_EQ(LogIn(b, CodeKey(b), &res)["status"].asString(), "success");
    wh_test::HttpConn conn(b.Port());
    ASSERT_TRUE(conn.Get("/api/events", "Cookie: " + Cookie(res, "qvsessionid") + "\r\n"));
    HttpResponse head;
    ASSERT_TRUE(conn.ReadHead(head));
    int status = -1;
    ws_test::RunAndCapture(Tool(a, "eventgen"), {"--message", "from host a"}, &status);
    ASSERT_EQ(status, 0);
    std::string all, piece;
    bool end = false;
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (all.find("from host a") == std::string::npos && !end &&
           std::chrono::steady_clock::now() < deadline) {
        if (conn.ReadChunk(head, piece, end))
            all += piece;
    }
    EXPECT_NE(all.find("\"message\":\"from host a\""), std::string::npos) << all;
}

}  // namespace
