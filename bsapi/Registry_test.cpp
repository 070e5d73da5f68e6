// Tests of the codes that need the embedded engine's files to arise (lost, replaced, damaged or
// unwritable files), the engine choice, the install-directory rule and the fault-injection hook.
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <thread>

#include "bsapi/bsapi.h"
#include "tests/support/TestTree.h"

using tarn::VariableData;

namespace {

std::string ServerDir(unsigned short port) {
    return ws_test::InstallRoot() + "/middle/data/127.0.0.1_" + std::to_string(port);
}

}  // namespace

class RegistryTest : public ::testing::Test {
protected:
    void SetUp() override {
        static unsigned short next = 24000;
        m_nPort = next++;
    }
    void TearDown() override {
        if (m_h != BS_INVALID_HANDLE)
            bs_close_handle(m_h);
        ::unsetenv("BSAPI_ENGINE");
        ::unsetenv("BSAPI_DATA_DIR");
    }
    int Open(const char* tree, unsigned flags = BS_OPEN_CREATE) {
        return bs_treedb_open(m_h, "m", nullptr, "", flags, tree, "127.0.0.1", m_nPort);
    }
    unsigned short m_nPort = 0;
    void* m_h = BS_INVALID_HANDLE;
};

TEST_F(RegistryTest, FilesLiveUnderTheInstallTree) {
    ASSERT_EQ(Open("Layout"), BS_OK);
    EXPECT_TRUE(ws_test::FileExists(ServerDir(m_nPort) + "/tree_Layout.db"));
    void* q = BS_INVALID_HANDLE;
    ASSERT_EQ(bs_mq_open(q, "q", "", 2, 0, "127.0.0.1", m_nPort), BS_OK);
    bs_close_handle(q);
    EXPECT_TRUE(ws_test::FileExists(ServerDir(m_nPort) + "/queues.db"));
    void* t = BS_INVALID_HANDLE;
    ASSERT_EQ(bs_tabledb_open(t, "../escape", "", "", 0, 0, "127.0.0.1", m_nPort), BS_OK);
    bs_close_handle(t);
    EXPECT_TRUE(ws_test::FileExists(ServerDir(m_nPort) + "/table_%2E.%2Fescape.db"));
    // Port 0 names the default server.
    void* d = BS_INVALID_HANDLE;
    ASSERT_EQ(bs_treedb_open(d, "m", nullptr, "", BS_OPEN_CREATE, "dflt", "127.0.0.1", 0), BS_OK);
    bs_close_handle(d);
    EXPECT_TRUE(ws_test::FileExists(ServerDir(8123) + "/tree_dflt.db"));
}

TEST_F(RegistryTest, LostAndReplacedFilesAreReportedByKeepLive) {
    ASSERT_EQ(Open("live"), BS_OK);
    EXPECT_EQ(bs_handle_keep_live(m_h), BS_OK);
    std::string file = ServerDir(m_nPort) + "/tree_live.db";
    ASSERT_EQ(::rename(file.c_str(), (file + ".old").c_str()), 0);
    EXPECT_EQ(bs_handle_keep_live(m_h), BS_ERR_CONN_LOST);
    void* other = BS_INVALID_HANDLE;
    ASSERT_EQ(bs_treedb_open(other, "m", nullptr, "", BS_OPEN_CREATE, "live", "127.0.0.1", m_nPort),
              BS_OK);
    EXPECT_EQ(bs_handle_keep_live(m_h), BS_ERR_CONN_RESET);  // a new file took the old one's place
    EXPECT_EQ(bs_handle_keep_live(other), BS_OK);
    bs_close_handle(other);
}

TEST_F(RegistryTest, DamagedAndUnwritableStorageGiveTheirCodes) {
    std::string dir = ServerDir(m_nPort);
    ASSERT_TRUE(ws_test::MakeDirs(dir));
    ws_test::WriteFile(dir + "/tree_junk.db", std::string(8192, 'J'));
    EXPECT_EQ(Open("junk"), BS_ERR_CORRUPT);
    EXPECT_EQ(m_h, BS_INVALID_HANDLE);
    std::string blocker = ws_test::InstallRoot() + "/not-a-dir";
    ws_test::WriteFile(blocker, "x");
    ::setenv("BSAPI_DATA_DIR", (blocker + "/data").c_str(), 1);
    EXPECT_EQ(Open("any"), BS_ERR_IO);
    void* q = BS_INVALID_HANDLE;
    EXPECT_EQ(bs_mq_open(q, "q", "", 2, 0, "127.0.0.1", m_nPort), BS_ERR_IO);
    ::unsetenv("BSAPI_DATA_DIR");
}

TEST_F(RegistryTest, UnknownEngineIsRefused) {
    ::setenv("BSAPI_ENGINE", "nosuch", 1);
    EXPECT_EQ(Open("t"), BS_ERR_NO_ENGINE);
    std::list<std::string> names;
    EXPECT_EQ(bs_mq_query_all_names(names, "127.0.0.1", m_nPort), BS_ERR_NO_ENGINE);
    ::setenv("BSAPI_ENGINE", "sqlite", 1);
    EXPECT_EQ(Open("t"), BS_OK);
}

TEST_F(RegistryTest, FaultInjectionAnswersTheNextCallsThenStops) {
    ASSERT_EQ(Open("f"), BS_OK);
    ASSERT_EQ(bs_treedb_insert_property(m_h, "p", VariableData(1), true), BS_OK);
    VariableData v;
    bs_debug_fail_next("bs_treedb_get_property", BS_ERR_CONN_CLOSED, 2);
    EXPECT_EQ(bs_treedb_get_property(m_h, "p", v), BS_ERR_CONN_CLOSED);
    EXPECT_EQ(bs_treedb_get_property(m_h, "p", v), BS_ERR_CONN_CLOSED);
    EXPECT_EQ(bs_treedb_get_property(m_h, "p", v), BS_OK);
    // Faults that no real situation here can produce: memory and internal failures.
    bs_debug_fail_next("*", BS_ERR_NO_MEMORY, 1);
    EXPECT_EQ(bs_treedb_insert_property(m_h, "p", VariableData(2), true), BS_ERR_NO_MEMORY);
    bs_debug_fail_next("bs_mq_pop", BS_ERR_INTERNAL, 5);
    bs_debug_fail_next("bs_mq_pop", BS_ERR_INTERNAL, 0);  // removed again
    bs_debug_fail_next("bs_treedb_get_property", BS_ERR_INTERNAL, 1);
    EXPECT_EQ(bs_treedb_get_property(m_h, "p", v), BS_ERR_INTERNAL);
    EXPECT_EQ(bs_treedb_get_property(m_h, "p", v), BS_OK);
    EXPECT_EQ(static_cast<int>(v), 1);  // the refused insert did not happen
}

// A first open of a new file that another connection is writing at that moment (as when several
// threads or processes open a new file at once and one of them turns it to WAL) waits for it, up
// to the busy timeout, instead of answering 2001 at once: here the writer lets go after 300 ms.
TEST_F(RegistryTest, FirstOpenWaitsWhileAnotherConnectionHoldsTheNewFile) {
    ASSERT_TRUE(ws_test::MakeDirs(ServerDir(m_nPort)));
    sqlite3* other = nullptr;
    ASSERT_EQ(sqlite3_open((ServerDir(m_nPort) + "/tree_held.db").c_str(), &other), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(other, "CREATE TABLE t(a); BEGIN IMMEDIATE", nullptr, nullptr, nullptr),
              SQLITE_OK);
    // The writer waits for locks as the library's connections do: without that, its commit may
    // meet the opener's lock and give up, and the file stays held.
    sqlite3_busy_timeout(other, 5000);
    int committed = -1;
    std::thread release([other, &committed] {
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        committed = sqlite3_exec(other, "COMMIT", nullptr, nullptr, nullptr);
    });
    EXPECT_EQ(Open("held"), BS_OK);
    release.join();
    EXPECT_EQ(committed, SQLITE_OK);
    sqlite3_close(other);
}

// A handle used after its close answers 1024 and never reaches a handle opened later, whatever
// memory the new one took; values never given out stay BS_ERR_BAD_HANDLE.
TEST_F(RegistryTest, StaleHandleNeverReachesALaterOne) {
    ASSERT_EQ(Open("stale"), BS_OK);
    ASSERT_EQ(bs_treedb_insert_property(m_h, "p", VariableData(1), true), BS_OK);
    for (int round = 0; round < 3; ++round) {
        void* stale = m_h;
        ASSERT_EQ(bs_close_handle(m_h), BS_OK);
        ASSERT_EQ(Open("stale"), BS_OK);
        EXPECT_NE(m_h, stale);
        VariableData v;
        EXPECT_EQ(bs_treedb_get_property(stale, "p", v), BS_ERR_CONN_CLOSED);
        EXPECT_EQ(bs_treedb_insert_property(stale, "p", VariableData(2), true), BS_ERR_CONN_CLOSED);
        EXPECT_EQ(bs_handle_keep_live(stale), BS_ERR_CONN_CLOSED);
        EXPECT_EQ(bs_close_handle(stale), BS_ERR_CONN_CLOSED);
        ASSERT_EQ(bs_treedb_get_property(m_h, "p", v), BS_OK) << "the later handle still serves";
        EXPECT_EQ(static_cast<int>(v), 1);
    }
    int local = 0;
    void* never = &local;
    EXPECT_EQ(bs_handle_keep_live(never), BS_ERR_BAD_HANDLE);
}

// Run only inside the copy below: creates a tree where the install rule puts it.
TEST_F(RegistryTest, CreateProbeTree) {
    if (std::getenv("BSAPI_TEST_PROBE") == nullptr)
        GTEST_SKIP() << "runs inside InstallDirEndsAtTheLastServer";
    ASSERT_EQ(Open("probe"), BS_OK);
}

TEST_F(RegistryTest, InstallDirEndsAtTheLastServer) {
    std::string base = ws_test::InstallRoot() + "/opt/Server/x/Server";
    std::string copy = base + "/deep/bin/Registry_test";
    ASSERT_TRUE(ws_test::CopyExecutable(ws_test::SelfExe(), copy));
    ::setenv("BSAPI_TEST_PROBE", "1", 1);
    int status = -1;
    ws_test::RunAndCapture(copy, {"--gtest_filter=RegistryTest.CreateProbeTree"}, &status);
    ::unsetenv("BSAPI_TEST_PROBE");
    EXPECT_EQ(status, 0);
    EXPECT_TRUE(ws_test::FileExists(base + "/middle/data/127.0.0.1_24000/tree_probe.db"))
        << "the probe runs as the first test of its process, on port 24000";
}
