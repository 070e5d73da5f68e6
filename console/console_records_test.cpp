// The console's management and event handlers over loopback: companies, CCU records and login
// names with their worded refusals and what reaches the database, and the live event stream with
// its resumption through Last-Event-ID.
#include <unistd.h>

#include <chrono>
#include <memory>
#include <vector>

#include "console/ConsoleTestHost.h"

namespace console_test {
namespace {

TEST_F(ConsoleLoopback, ChangesNeedAFreshTokenAndSayWhyTheyAreRefused) {
    const std::string session = LogIn();
    ASSERT_FALSE(session.empty());
    struct Case {
        const char* what;
        const char* target;
        std::string body;
        std::string errmsg;
    };
    const Case cases[] = {
        {"bad id", "/api/company/save", "id=a%20b",
         "Invalid name: use 1 to 64 letters, digits or _ - . @: a b"},
        {"bad parameter line", "/api/company/save", "id=c1&params=novalue",
         "Parameter lines must read name=value: novalue"},
        {"duplicate", "/api/company/save", "id=demo", "The record exists already"},
        {"edit unknown", "/api/company/save", "id=nosuch&mode=edit", "No such record"},
        {"delete unknown", "/api/company/delete", "id=nosuch", "No such record"},
        {"ccu of unknown company", "/api/ccu/save", "company=nosuch&ccu=u1",
         "The company does not exist: nosuch"},
        {"ccu number", "/api/ccu/save", "company=demo&ccu=u1&useddev=12x", "Invalid number"},
        {"login of unknown company", "/api/loginname/save", "name=eve&company=nosuch",
         "The company does not exist: nosuch"},
        {"rename onto a taken name", "/api/loginname/save", "name=admin&company=demo&oldname=x9",
         "The record exists already"},
    };
    for (const Case& c : cases) {
        Json::Value v = Change(session + "; qv_lan=en", c.target, c.body);
        EXPECT_EQ(v["status"].asString(), "failed") << c.what;
        EXPECT_EQ(v["errmsg"].asString(), c.errmsg) << c.what;
    }
    // Without a token cookie the library refuses (its other refusals: tests/host/host_gate_test).
    Json::Value none = JsonOf(Post("/api/company/save", session, "id=late"));
    EXPECT_EQ(none["status"].asString(), "failed");
    EXPECT_EQ(none["errmsg"].asString(), "请求非法");
    int status = -1;
    Run("bsctl", {"company", "show", "late"}, &status);
    EXPECT_NE(status, 0) << "a refused change must not reach the database";
}

TEST_F(ConsoleLoopback, CompanyCcuAndLoginNameRoundTrip) {
    const std::string session = LogIn();
    Json::Value v =
        Change(session, "/api/company/save", "id=acme&params=region%3Dnorth%0Alevel%3Dgold");
    ASSERT_EQ(v["status"].asString(), "success") << v.toStyledString();
    v = Change(session, "/api/ccu/save",
               "company=acme&ccu=u1&label=rack%201&connectstat=1&useddev=5&usedmon=9");
    ASSERT_EQ(v["status"].asString(), "success") << v.toStyledString();
    // An edit replaces the parameters (level goes) and keeps the CCU.
    // Values keep any text (here UTF-8 Chinese, percent-encoded as a browser sends it).
    v = Change(
        session, "/api/company/save",
        "id=acme&mode=edit&params=region%3Dsouth%0Aname%3D%E5%8C%97%E6%96%B9%E5%85%AC%E5%8F%B8");
    ASSERT_EQ(v["status"].asString(), "success") << v.toStyledString();
    ASSERT_EQ(Change(session, "/api/loginname/save", "name=bob&company=acme")["status"].asString(),
              "success");
    ASSERT_EQ(
        Change(session, "/api/loginname/save", "name=robert&company=acme&oldname=bob")["status"]
            .asString(),
        "success");

    HttpResponse listed = Call("/api/companies", session);
    EXPECT_EQ(listed.Header("Content-Type"), "application/json;charset=UTF-8");
    Json::Value list = JsonOf(listed);
    Json::Value acme;
    for (const Json::Value& c : list["data"])
        if (c["id"].asString() == "acme")
            acme = c;
    ASSERT_TRUE(acme.isObject()) << list.toStyledString();
    EXPECT_EQ(acme["params"]["region"].asString(), "south");
    EXPECT_EQ(acme["params"]["name"].asString(), "北方公司");
    EXPECT_FALSE(acme["params"].isMember("level"));
    ASSERT_EQ(acme["ccus"].size(), 1u);
    EXPECT_EQ(acme["ccus"][0]["label"].asString(), "rack 1");
    EXPECT_EQ(acme["ccus"][0]["useddev"].asInt(), 5);
    EXPECT_EQ(acme["ccus"][0]["registertime"].asString().size(), 19u);
    EXPECT_NE(Run("bsctl", {"login", "show", "robert"}).find("acme"), std::string::npos);
    int status = -1;
    Run("bsctl", {"login", "show", "bob"}, &status);
    EXPECT_NE(status, 0) << "the renamed login's old name is gone";

    // Deleting the company takes its CCU and its login names along.
    ASSERT_EQ(Change(session, "/api/company/delete", "id=acme")["status"].asString(), "success");
    Run("bsctl", {"company", "show", "acme"}, &status);
    EXPECT_NE(status, 0);
    Run("bsctl", {"login", "show", "robert"}, &status);
    EXPECT_NE(status, 0);
}

// Reads event-stream chunks until `want` appears, the stream ends or `seconds` pass (each read
// gives up after five quiet seconds, so quiet reads are retried until the deadline).
std::string ReadUntil(wh_test::HttpConn& conn, HttpResponse& res, const std::string& want,
                      int seconds = 10) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
    std::string all, piece;
    bool end = false;
    while (all.find(want) == std::string::npos && !end &&
           std::chrono::steady_clock::now() < deadline) {
        if (conn.ReadChunk(res, piece, end))
            all += piece;
    }
    return all;
}

// Popping takes a message out of the queue for good; every open page must still see every event.
// A browser coming back with the id of the last event it saw gets only what followed it.
TEST_F(ConsoleLoopback, EveryOpenStreamGetsEveryEventAndResumesAfterLastEventId) {
    const std::string session = LogIn();
    const int port = s_host->Port();
    std::string lastId;
    {
        std::vector<std::unique_ptr<wh_test::HttpConn>> conns;
        std::vector<HttpResponse> heads(3);
        for (int i = 0; i < 3; ++i) {
            conns.push_back(std::make_unique<wh_test::HttpConn>(port));
            ASSERT_TRUE(conns.back()->Get("/api/events", "Cookie: " + session + "\r\n"));
            ASSERT_TRUE(conns.back()->ReadHead(heads[i]));
            EXPECT_EQ(heads[i].Header("Content-Type"), "text/event-stream");
        }
        Run("eventgen",
            {"--company", "demo", "--message", "fan", "--count", "5", "--interval-ms", "20"});
        std::string got;
        for (int i = 2; i >= 0; --i) {  // stream 0 last: its text gives the id
            got = ReadUntil(*conns[i], heads[i], "fan #5");
            for (int n = 1; n <= 5; ++n)
                EXPECT_NE(got.find("\"message\":\"fan #" + std::to_string(n) + "\""),
                          std::string::npos)
                    << "stream " << i << " misses event " << n << ": " << got;
        }
        size_t id = got.rfind("id: ");
        lastId = got.substr(id + 4, got.find('\n', id) - id - 4);
        // Text that is no event object is shown, not dropped.
        Run("bsctl", {"queue", "push", "consoleevents", "raw text"});
        got = ReadUntil(*conns[0], heads[0], "raw text");
        EXPECT_NE(got.find("\"severity\":\"unknown\""), std::string::npos) << got;
    }
    wh_test::HttpConn again(port);
    ASSERT_TRUE(
        again.Get("/api/events", "Cookie: " + session + "\r\nLast-Event-ID: " + lastId + "\r\n"));
    HttpResponse res;
    ASSERT_TRUE(again.ReadHead(res));
    std::string got = ReadUntil(again, res, "raw text");
    EXPECT_NE(got.find("raw text"), std::string::npos) << got;
    EXPECT_EQ(got.find("fan #"), std::string::npos) << got;
}

// The queue's database file replaced under an open stream (restored from a backup, or removed
// by hand): events pushed into the new file still arrive. The stream ends soon after its session.
TEST_F(ConsoleLoopback, AStreamFollowsANewQueueFileAndEndsWithItsSession) {
    const std::string session = LogIn();
    wh_test::HttpConn conn(s_host->Port());
    ASSERT_TRUE(conn.Get("/api/events", "Cookie: " + session + "\r\n"));
    HttpResponse res;
    ASSERT_TRUE(conn.ReadHead(res));
    Run("eventgen", {"--message", "before"});
    ASSERT_NE(ReadUntil(conn, res, "before").find("before"), std::string::npos);
    const std::string dir = s_tree->Path("middle/data/127.0.0.1_8123/");
    for (const char* f : {"queues.db", "queues.db-wal", "queues.db-shm"})
        ::unlink((dir + f).c_str());
    Run("eventgen", {"--message", "after the new file"});
    std::string got = ReadUntil(conn, res, "after the new file", 15);
    EXPECT_NE(got.find("after the new file"), std::string::npos) << got;

    ASSERT_EQ(Change(session, "/api/logout", "")["status"].asString(), "success");
    const auto start = std::chrono::steady_clock::now();
    std::string piece;
    bool end = false;
    while (conn.ReadChunk(res, piece, end))
        got += piece;
    EXPECT_TRUE(end) << "the stream is closed with its last chunk; read: " << got;
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(9));
}

}  // namespace
}  // namespace console_test
