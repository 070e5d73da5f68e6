// The maintenance thread started at load, in a private installation: nothing is loaded during
// the first second, then the persisted sessions, the "safe" settings and the verification codes
// are, and the sweep with "tokeninterval" 1 removes token files once they are 16 seconds old.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>

#include "common/Clock.h"
#include "db/QvHandle.h"
#include "protect/WebToken.h"
#include "session/SessionApi.h"
#include "session/SessionStartup.h"
#include "session/WebSession.h"
#include "tests/support/TestTree.h"

namespace {

std::atomic<time_t> g_now{1900000000};
time_t FakeNow() {
    return g_now.load();
}

// Whether the test could prepare the installation before the thread's first step.
bool g_bPreparedInTime = false;
std::string g_strTokenFile;  // the token file the sweep must remove

bool WaitFor(bool (*done)(), int seconds) {
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
    while (!done() && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return done();
}

class StartupTest : public ::testing::Test {
protected:
    // Runs well within the thread's first second: settings and one persisted session.
    static void SetUpTestSuite() {
        ws_test::WriteFile(ws_test::InstallRoot() + "/middle/Conf/middle.ini",
                           "[safe]\ntokeninterval=1\nchecktoken=0\ncheckverifycode=0\n");
        CQvHandleLoc loc;
        if (loc.Treedb_Alloc("127.0.0.1", "master", "Session", "", -1, 0) == 0 &&
            loc.Treedb_InsertSubKey("stored-1", 2) == 0 &&
            loc.Treedb_ReopenSubKey("stored-1", -1) == 0) {
            loc.Treedb_WriteKeyString("user", "sam");
            loc.Treedb_WriteKeyString("co", "acme");
            loc.Treedb_WriteKeyInt("servertype", 2);
        }
        g_bPreparedInTime = !Session_InitDataDone() && !gw_webSession.IsInitialised();
    }
};

TEST_F(StartupTest, LoadsAfterTheFirstSecond) {
    ASSERT_TRUE(g_bPreparedInTime) << "the maintenance thread loaded before the test could prepare";
    EXPECT_EQ(gw_webSession.GetSessionCount(), 0u) << "nothing is loaded in the first second";
    EXPECT_TRUE(g_WebTokenColl.GetCheckToken()) << "the constructor's switch until the load";

    ASSERT_TRUE(WaitFor(&Session_InitDataDone, 15));
    EXPECT_TRUE(gw_webSession.IsInitialised());
    std::string company;
    EXPECT_TRUE(Session_GetCompanyIdBySessionId("stored-1", company));
    EXPECT_EQ(company, "acme");
    bool verify = true, token = true;
    EXPECT_FALSE(BSGetVerifyToken(verify, token));
    EXPECT_FALSE(verify);
    EXPECT_EQ(g_WebTokenColl.GetTokenInterval(), 1u);
}

// The sweep itself is tested beside its code; here the started thread runs it every second.
TEST_F(StartupTest, SweepWithIntervalOneRemovesOldTokenFiles) {
    ASSERT_TRUE(WaitFor(&Session_InitDataDone, 15));
    tarn::SetClockForTest(&FakeNow);
    const std::string cookie = BSGetTokenCookie(nullptr);
    g_strTokenFile = CWebTokenColl::TokenFilePath(cookie.substr(11, cookie.find(';') - 11));
    ASSERT_TRUE(ws_test::FileExists(g_strTokenFile));
    g_now = 1900000016;
    EXPECT_TRUE(WaitFor([] { return !ws_test::FileExists(g_strTokenFile); }, 3))
        << "not removed within about a second of turning 16 seconds old";
    tarn::SetClockForTest(nullptr);
}

}  // namespace
