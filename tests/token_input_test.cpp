// Arbitrary bytes in the cookies, query string, body and origin texts of requests reaching the
// CSRF check (and through it the gate): the result is 0 or 1, a refusal is exactly one
// well-formed JSON answer and an acceptance writes nothing.
#include <gtest/gtest.h>
#include <json/json.h>

#include <random>
#include <string>

#include "common/md5.h"
#include "session/SessionApi.h"
#include "tests/support/HostDouble.h"
#include "tests/support/TestTree.h"

namespace {

// True when `body` is a JSON object with "status" "failed", bare or as "<callback>(<json>);".
bool WellFormedRefusal(const std::string& body) {
    auto failedObject = [](const std::string& text) {
        Json::Value root;
        return Json::Reader().parse(text, root) && root.isObject() &&
               root["status"].asString() == "failed" && root.isMember("errmsg");
    };
    if (!body.empty() && body[0] == '{' && failedObject(body))
        return true;
    if (body.size() < 4 || body.compare(body.size() - 2, 2, ");") != 0)
        return false;
    for (auto p = body.find("({"); p != std::string::npos; p = body.find("({", p + 1)) {
        if (failedObject(body.substr(p + 1, body.size() - p - 3)))
            return true;
    }
    return false;
}

TEST(TokenInputTest, ArbitraryBytesGiveAWellFormedAnswer) {
    ws_test::WriteFile(ws_test::InstallRoot() + "/middle/Conf/middle.ini",
                       "[safe]\nchecktoken=1\n");
    BSInitSession();
    std::string id = "fuzz-session", digest;
    BSAddSession(id, "f", "co", 1, 0, "");
    sdigest("fuzz", digest);
    std::mt19937 random(424242);
    auto bytes = [&](size_t max) {
        std::string s(random() % max, '\0');
        for (char& ch : s)
            ch = static_cast<char>(random() % 256);
        return s;
    };
    const char* pieces[] = {"CSRF-TOKEN=",
                            "qvsessionid=fuzz-session",
                            "callbackparam=",
                            "v_dx=",
                            ";",
                            "-",
                            "%3C",
                            "=",
                            "&"};
    auto shaped = [&](size_t max) {
        std::string s = bytes(max);
        for (int k = random() % 4; k > 0; --k)
            s.insert(random() % (s.size() + 1), pieces[random() % 9]);
        if (random() % 3 == 0)
            s += "CSRF-TOKEN=" + digest + "-" + std::to_string(random());
        return s;
    };
    int refused = 0, twice = 0;
    for (int i = 0; i < 3000; ++i) {
        ws_test::HostDouble host;
        const std::string body = bytes(48);
        const bool post = random() % 2 == 0;
        host.Method(post ? WH_METHOD_POST : WH_METHOD_GET).Cookie(shaped(80)).Query(shaped(80));
        host.Host(bytes(8)).Referer(random() % 4 ? bytes(40) : std::string());
        host.Peer(random() % 2 ? "10.0.0.1" : "10.0.0.2").Body(body.c_str());
        const uint32_t result = BSCheckToken(host.Info());
        ASSERT_LE(result, 1u);
        if (result == 1) {
            ASSERT_FALSE(host.Answered()) << "an accepted request got an answer";
            continue;
        }
        ++refused;
        const std::string sent = host.BodySent();
        if (host.SendHeadCalls() == 2) {
            // Only an unparsable POST body answers twice: the gate reports the body, then the
            // check reports the refused gate. Both answers are well formed.
            ++twice;
            ASSERT_TRUE(post && body.c_str()[0] == '\0') << sent;
            const std::string::size_type cut = sent.find("}\n") + 2;
            ASSERT_TRUE(WellFormedRefusal(sent.substr(0, cut))) << sent;
            ASSERT_TRUE(WellFormedRefusal(sent.substr(cut))) << sent;
            ASSERT_NE(sent.find("Session init failed or query string failed"), std::string::npos);
            continue;
        }
        ASSERT_EQ(host.SendHeadCalls(), 1) << "a refusal must be answered exactly once";
        ASSERT_TRUE(WellFormedRefusal(sent)) << sent;
    }
    EXPECT_GT(refused, 0);
    EXPECT_GT(twice, 0);
}

}  // namespace
