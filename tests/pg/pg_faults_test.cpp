// Faults of the PostgreSQL engine, produced for real on a private server: backends terminated in
// and between transactions, the server killed and restarted under eight locator writers, a
// backend that stops answering, a dropped schema, a deadlock, and configurations that cannot work.
#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <map>
#include <thread>

#include "bsapi/bsapi.h"
#include "db/QvHandle.h"
#include "tests/support/PgServer.h"
#include "tests/support/TestTree.h"

using tarn::VariableData;
using Clock = std::chrono::steady_clock;

namespace {

double Since(Clock::time_point t) {
    return std::chrono::duration<double>(Clock::now() - t).count();
}

// Standard error of this process while `run` runs.
template <typename F>
std::string StderrOf(F run) {
    ws_test::TempTree dir("pgerr");
    std::string file = dir.Path("stderr.txt");
    int saved = ::dup(2), fd = ::open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    ::dup2(fd, 2);
    run();
    ::dup2(saved, 2);
    ::close(fd);
    ::close(saved);
    return ws_test::ReadFile(file);
}

class PgFaults : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_NO_FATAL_FAILURE(ws_test::UseEngine("postgres"));
        static unsigned short next = 24000;
        m_nPort = next++;
    }
    void TearDown() override {
        for (void** h : {&m_h, &m_other}) {
            if (*h != BS_INVALID_HANDLE)
                bs_close_handle(*h);
        }
        ::unsetenv("BSAPI_PG_TIMEOUT_MS");
    }
    ws_test::PgServer& Server() { return ws_test::PgServer::Shared(); }
    int OpenTree(void*& h) {
        return bs_treedb_open(h, "m", nullptr, "", BS_OPEN_CREATE, "t", "127.0.0.1", m_nPort);
    }
    // Ends every engine connection to the server and waits until they are gone.
    void TerminateBackends() {
        const std::string who = " FROM pg_stat_activity WHERE application_name = 'bsapi'";
        ASSERT_TRUE(Server().Exec("SELECT count(pg_terminate_backend(pid))" + who));
        std::string left;
        for (int i = 0; i < 200; ++i) {
            ASSERT_TRUE(Server().Exec("SELECT count(*)" + who, &left));
            if (left == "0")
                return;
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        FAIL() << left << " backends still there";
    }
    int Get(void*& h, const char* name) {
        VariableData v;
        int rc = bs_treedb_get_property(h, name, v);
        return rc == BS_OK ? static_cast<int>(v) : -rc;
    }

    unsigned short m_nPort = 0;
    void* m_h = BS_INVALID_HANDLE;
    void* m_other = BS_INVALID_HANDLE;
};

TEST_F(PgFaults, TerminatedBackendGives1005AndLosesOnlyTheOpenTransaction) {
    ASSERT_EQ(OpenTree(m_h), BS_OK);
    ASSERT_EQ(bs_treedb_insert_property(m_h, "kept", VariableData(1), true), BS_OK);
    ASSERT_EQ(bs_treedb_begin_transaction(m_h), BS_OK);
    ASSERT_EQ(bs_treedb_insert_property(m_h, "lost", VariableData(2), true), BS_OK);
    ASSERT_NO_FATAL_FAILURE(TerminateBackends());
    EXPECT_EQ(bs_treedb_insert_property(m_h, "late", VariableData(3), true), BS_ERR_CONN_LOST);
    EXPECT_EQ(bs_treedb_commit_transaction(m_h), BS_ERR_CONN_LOST);
    EXPECT_EQ(bs_handle_keep_live(m_h), BS_ERR_CONN_LOST);
    ASSERT_EQ(bs_close_handle(m_h), BS_OK);
    ASSERT_EQ(OpenTree(m_h), BS_OK);
    EXPECT_EQ(Get(m_h, "kept"), 1);
    EXPECT_EQ(Get(m_h, "lost"), -BS_ERR_NO_KEY);
    EXPECT_EQ(Get(m_h, "late"), -BS_ERR_NO_KEY);

    // Between calls: the probe the locator makes before reusing a handle notices it.
    ASSERT_NO_FATAL_FAILURE(TerminateBackends());
    EXPECT_EQ(bs_handle_keep_live(m_h), BS_ERR_CONN_LOST);
    EXPECT_EQ(Get(m_h, "kept"), -BS_ERR_CONN_LOST);

    // A pop asleep on its connection wakes with 1005 rather than sleeping out its timeout.
    ASSERT_EQ(bs_mq_open(m_other, "q", "", BS_MQ_OPEN_CREATE, 0, "127.0.0.1", m_nPort), BS_OK);
    std::thread killer([this] {
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        TerminateBackends();
    });
    VariableData v;
    std::string name;
    long time = 0;
    unsigned long long id = 0;
    Clock::time_point start = Clock::now();
    EXPECT_EQ(bs_mq_pop(m_other, v, name, time, id, 20000, false), BS_ERR_CONN_LOST);
    EXPECT_LT(Since(start), 5.0);
    killer.join();
}

// Eight threads insert records through CQvHandleLoc while the server is killed and started again.
// Every insert that answered 0 is there afterwards, none is there twice (the engine never
// retries a write), and every thread writes again within two seconds of the restart.
TEST_F(PgFaults, ServerKilledAndRestartedUnderEightLocatorWriters) {
    const int kThreads = 8;
    auto alloc = [this](CQvHandleLoc& loc) {
        return loc.Tabledb_Alloc("127.0.0.1", "faults", "", "", m_nPort, 0, 0);
    };
    {
        CQvHandleLoc loc;
        ASSERT_EQ(alloc(loc), 0);
        bs_tdfield what("what", VariableData::VT_STRING);
        std::list<bs_tdfield*> fields{&what};
        ASSERT_EQ(loc.Tabledb_CreateTable("log", fields, 0), 0);
    }
    std::atomic<bool> stop{false};
    std::atomic<long long> restartNs{0};
    std::vector<std::vector<std::string>> written(kThreads);
    std::vector<double> firstAfter(kThreads, -1);  // each thread its own; read after the join
    std::atomic<int> writingAgain{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; !stop; ++i) {
                const std::string what = std::to_string(t) + "." + std::to_string(i);
                CQvHandleLoc loc;
                std::list<VariableData> values{VariableData(what)};
                long long id = 0;
                const long long restarted = restartNs;
                if (alloc(loc) != 0 || loc.Tabledb_InsertRecord("log", values, id) != 0) {
                    std::this_thread::sleep_for(std::chrono::milliseconds(5));
                    continue;
                }
                written[t].push_back(what);
                if (restarted != 0 && firstAfter[t] < 0) {
                    firstAfter[t] = (Clock::now().time_since_epoch().count() - restarted) / 1e9;
                    ++writingAgain;
                }
            }
        });
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(400));
    ASSERT_TRUE(Server().Stop("immediate"));
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    ASSERT_TRUE(Server().Start());
    restartNs = Clock::now().time_since_epoch().count();
    for (int i = 0; i < 500 && writingAgain < kThreads; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    stop = true;
    for (std::thread& th : threads)
        th.join();

    CQvHandleLoc loc;
    ASSERT_EQ(alloc(loc), 0);
    void* cursor = BS_INVALID_HANDLE;
    int count = 0;
    ASSERT_EQ(loc.Tabledb_SelectRecords(cursor, "log", count), 0);
    std::map<std::string, int> stored;
    bs_record r;
    for (int rc = CQvHandleLoc::Tabledb_GetCursor(cursor, r); rc == BS_OK;
         rc = CQvHandleLoc::Tabledb_CursorNext(cursor)
                  ?: CQvHandleLoc::Tabledb_GetCursor(cursor, r))
        ++stored[r["what"].GetText()];
    CQvHandleLoc::Tabledb_CloseHandle(cursor);
    EXPECT_EQ(static_cast<int>(stored.size()), count) << "a record stored twice";
    size_t total = 0;
    for (int t = 0; t < kThreads; ++t) {
        EXPECT_GE(firstAfter[t], 0) << "thread " << t << " never wrote after the restart";
        EXPECT_LT(firstAfter[t], 2.0) << "thread " << t;
        total += written[t].size();
        for (const std::string& w : written[t])
            EXPECT_EQ(stored[w], 1) << w;
    }
    EXPECT_GT(total, 100u);
}

// A backend that stops answering (stopped with SIGSTOP, as a cut network looks) costs the caller
// the statement time-out and a little more, then 1005.
TEST_F(PgFaults, SilentServerGives1005AfterTheTimeout) {
    ::setenv("BSAPI_PG_TIMEOUT_MS", "800", 1);
    ::setenv("BSAPI_PG_DSN", (Server().Dsn() + " application_name=silent").c_str(), 1);
    ASSERT_EQ(OpenTree(m_h), BS_OK);
    std::string pid;
    ASSERT_TRUE(
        Server().Exec("SELECT pid FROM pg_stat_activity WHERE application_name = 'silent'", &pid));
    ASSERT_EQ(::kill(std::stoi(pid), SIGSTOP), 0);
    Clock::time_point start = Clock::now();
    int rc = Get(m_h, "x");
    double took = Since(start);
    ::kill(std::stoi(pid), SIGCONT);
    EXPECT_EQ(rc, -BS_ERR_CONN_LOST);
    EXPECT_GE(took, 0.8);
    EXPECT_LT(took, 3.0);
    EXPECT_EQ(bs_handle_keep_live(m_h), BS_ERR_CONN_LOST);
}

TEST_F(PgFaults, DroppedSchemaGives1006AndIsCreatedAgainOnOpen) {
    ASSERT_EQ(OpenTree(m_h), BS_OK);
    ASSERT_EQ(bs_treedb_insert_property(m_h, "p", VariableData(1), true), BS_OK);
    const std::string schema = "bs_127.0.0.1_" + std::to_string(m_nPort);
    ASSERT_TRUE(Server().Exec("DROP SCHEMA \"" + schema + "\" CASCADE"));
    int rc = 0;
    std::string err = StderrOf([&] { rc = Get(m_h, "p"); });
    EXPECT_EQ(rc, -BS_ERR_CONN_RESET);
    EXPECT_NE(err.find(schema), std::string::npos) << err;
    EXPECT_EQ(bs_handle_keep_live(m_h), BS_ERR_CONN_RESET);
    ASSERT_EQ(bs_close_handle(m_h), BS_OK);
    ASSERT_EQ(OpenTree(m_h), BS_OK);
    EXPECT_EQ(Get(m_h, "p"), -BS_ERR_NO_KEY);
}

// A transaction that loses a deadlock gets 2018 at once and on its commit, and nothing of it is
// kept; the other side goes on.
TEST_F(PgFaults, DeadlockLoserGets2018AndKeepsNothing) {
    ASSERT_EQ(bs_tabledb_open(m_h, "d", "", "", 0, 0, "127.0.0.1", m_nPort), BS_OK);
    ASSERT_EQ(bs_tabledb_open(m_other, "d", "", "", 0, 0, "127.0.0.1", m_nPort), BS_OK);
    bs_tdfield v("v", VariableData::VT_INT32);
    ASSERT_EQ(bs_tabledb_create_table(m_h, "r", {&v}, 0), BS_OK);
    unsigned long long id1 = 0, id2 = 0;
    ASSERT_EQ(bs_tabledb_insert_record(m_h, "r", {VariableData(0)}, id1), BS_OK);
    ASSERT_EQ(bs_tabledb_insert_record(m_h, "r", {VariableData(0)}, id2), BS_OK);
    auto set = [](void*& h, unsigned long long id, int value) {
        VariableData which(static_cast<long long>(id));
        unsigned int n = 0;
        return bs_tabledb_update_record_by_field(h, "r", {"v"}, {VariableData(value)}, nullptr,
                                                 &which, nullptr, BS_CMP_EQUAL, BS_SEL_AUTOID, n);
    };
    ASSERT_EQ(set(m_h, id1, 0), BS_OK);  // record 1's new version now comes after record 2
    ASSERT_EQ(bs_tabledb_begin_transaction(m_h), BS_OK);
    ASSERT_EQ(set(m_h, id1, 10), BS_OK);
    // The other handle's scan locks record 2, then waits for record 1; its deadlock check
    // (100 ms) passes while this side is not waiting yet, so this side finds the cycle and loses.
    int otherRc = -1;
    std::thread other([&] {
        VariableData all;
        unsigned int n = 0;
        otherRc =
            bs_tabledb_update_record_by_field(m_other, "r", {"v"}, {VariableData(20)}, nullptr,
                                              &all, nullptr, BS_CMP_ALL, BS_SEL_AUTOID, n);
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(400));
    EXPECT_EQ(set(m_h, id2, 30), BS_ERR_CONFLICT);
    other.join();
    EXPECT_EQ(otherRc, BS_OK);
    EXPECT_EQ(set(m_h, id2, 40), BS_ERR_CONFLICT);
    EXPECT_EQ(bs_tabledb_begin_transaction(m_h), BS_ERR_IN_TRANSACTION);
    EXPECT_EQ(bs_tabledb_commit_transaction(m_h), BS_ERR_CONFLICT);
    EXPECT_EQ(bs_tabledb_commit_transaction(m_h), BS_ERR_NO_TRANSACTION);
    std::map<std::string, std::list<bs_record>> last;
    ASSERT_EQ(bs_get_tables_last_rd(m_h, {"r"}, 2, last), BS_OK);
    for (bs_record& r : last["r"])
        EXPECT_EQ(static_cast<int>(r["v"]), 20);
}

// Configurations that cannot work give a code at once (or after the connect time-out, 2 s here)
// and a message that names what is wrong, never the password. The bounds leave room for a
// loaded machine; without the time-out the silent server would hold the open for good.
TEST_F(PgFaults, BadConfigurationsNameTheTroubleNeverThePassword) {
    int silent = ::socket(AF_INET, SOCK_STREAM, 0);  // accepts connections, never answers
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t len = sizeof addr;
    ASSERT_EQ(::bind(silent, reinterpret_cast<sockaddr*>(&addr), len), 0);
    ASSERT_EQ(::listen(silent, 8), 0);
    ::getsockname(silent, reinterpret_cast<sockaddr*>(&addr), &len);
    const std::string secret = " password=Sesame-4711";
    struct Case {
        std::string dsn;
        int code;
        const char* says;
        double most;
    } cases[] = {
        {"host=/nonexistent/dir port=5" + secret, BS_ERR_CONN_LOST, "/nonexistent/dir", 3},
        {"host='unterminated" + secret, BS_ERR_NO_ENGINE, "BSAPI_PG_DSN is not", 3},
        {"host=127.0.0.1 connect_timeout=2 port=" + std::to_string(ntohs(addr.sin_port)) + secret,
         BS_ERR_CONN_LOST, "time-out", 5},
        {Server().Dsn() + " dbname=nosuchdb" + secret, BS_ERR_CONN_LOST, "nosuchdb", 3},
    };
    for (const Case& c : cases) {
        ::setenv("BSAPI_PG_DSN", c.dsn.c_str(), 1);
        int rc = 0;
        Clock::time_point start = Clock::now();
        std::string err = StderrOf([&] { rc = OpenTree(m_h); });
        EXPECT_LT(Since(start), c.most) << c.dsn;
        EXPECT_EQ(rc, c.code) << c.dsn;
        EXPECT_EQ(m_h, BS_INVALID_HANDLE);
        EXPECT_NE(err.find(c.says), std::string::npos) << err;
        EXPECT_EQ(err.find("Sesame"), std::string::npos) << err;
    }
    ::close(silent);
}

}  // namespace
