// Tests of the exported session functions on the process-wide table: the peer address from the
// host callback, the cookie readers on request records, and a session's life from log-in to
// log-out as the host sees it.
#include "session/SessionApi.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "session/WebSession.h"

namespace {

// Host callback doubles: the host decides what getServerVariable answers, and a failing or
// overfilling host cannot be produced otherwise.
struct PeerHost {
    bool succeed = true;
    std::string address;
    bool fillWhole = false;
    // What the library passed in.
    int32_t var = -1;
    uint32_t sizeIn = 0;
    bool bufferZeroed = false;
};

bool PeerVariable(void* connId, int32_t var, char* buf, uint32_t* size) {
    PeerHost* host = static_cast<PeerHost*>(connId);
    host->var = var;
    host->sizeIn = *size;
    host->bufferZeroed = true;
    for (uint32_t i = 0; i < *size; ++i) {
        if (buf[i] != 0)
            host->bufferZeroed = false;
    }
    if (!host->succeed)
        return false;
    if (host->fillWhole) {
        std::memset(buf, 'x', *size);
        return true;
    }
    std::memcpy(buf, host->address.data(), host->address.size());
    *size = static_cast<uint32_t>(host->address.size());
    return true;
}

class SessionApiTest : public ::testing::Test {
protected:
    // The process-wide table blocks lookups until its start-up load has run.
    static void SetUpTestSuite() { BSInitSession(); }

    st_wh_info Record(st_wh_head* head, PeerHost* host = nullptr) {
        st_wh_info info;
        info.head = head;
        info.connId = host;
        info.getServerVariable = host ? &PeerVariable : nullptr;
        return info;
    }
};

TEST_F(SessionApiTest, PeerAddressComesFromServerVariableTwo) {
    const struct {
        bool succeed, fillWhole;
        const char* address;
        std::string expected;
    } cases[] = {
        {true, false, "192.168.7.21", "192.168.7.21"},
        {false, false, "1.2.3.4", ""},            // the host cannot answer
        {true, true, "", std::string(256, 'x')},  // no terminator: cut at the buffer's end
    };
    for (const auto& c : cases) {
        PeerHost host;
        host.succeed = c.succeed;
        host.fillWhole = c.fillWhole;
        host.address = c.address;
        st_wh_head head;
        st_wh_info info = Record(&head, &host);
        EXPECT_EQ(GetPeerIP(&info), c.expected) << c.address;
        EXPECT_EQ(host.var, 2);
        EXPECT_EQ(host.sizeIn, 256u);
        EXPECT_TRUE(host.bufferZeroed);
    }
    EXPECT_EQ(GetPeerIP(nullptr), "");
    st_wh_head head;
    st_wh_info noCallback = Record(&head);
    EXPECT_EQ(GetPeerIP(&noCallback), "");
}

// The cookie readers, and a session's life as the host sees it (tests/session_threads_test runs
// the same calls from many threads); a session stored under the empty id is found like any other.
TEST_F(SessionApiTest, SessionLifeFromLoginToLogout) {
    EXPECT_FALSE(Web_SessionisPastdue(nullptr));
    st_wh_info headless = Record(nullptr);
    for (st_wh_info* info : {&headless, static_cast<st_wh_info*>(nullptr)}) {
        EXPECT_EQ(BSCheckQvSession(info), "");
        EXPECT_EQ(GetTokenFromCookie(info), "");
    }
    for (const std::string id : {"api-life-1", ""}) {
        st_wh_head head;  // for "": no cookie at all, so the id read is ""
        if (!id.empty())
            head.cookie = "qv_lan=en; CSRF-TOKEN=tok-1; qvsessionid=" + id;
        st_wh_info info = Record(&head);
        EXPECT_EQ(BSCheckQvSession(&info), id);
        EXPECT_EQ(GetTokenFromCookie(&info), id.empty() ? "" : "tok-1");
        EXPECT_TRUE(Web_SessionisPastdue(&info)) << id;
        EXPECT_TRUE(BSWhetherSessionIdTimeOut(id)) << id;
        std::string given = id;
        BSAddSession(given, "dora", "tenant7", 1, 0, "10.0.0.9");
        EXPECT_EQ(given, id);
        EXPECT_FALSE(Web_SessionisPastdue(&info)) << id;
        EXPECT_FALSE(BSWhetherSessionIdTimeOut(id)) << id;
        std::string company;
        EXPECT_TRUE(Session_GetCompanyIdBySessionId(id, company));
        EXPECT_EQ(company, "tenant7");

        BSEraseSession(id);
        EXPECT_TRUE(Web_SessionisPastdue(&info)) << id;
        EXPECT_TRUE(BSWhetherSessionIdTimeOut(id)) << id;
        company = "unchanged";
        EXPECT_FALSE(Session_GetCompanyIdBySessionId(id, company));
        EXPECT_EQ(company, "unchanged");
    }
}

}  // namespace
