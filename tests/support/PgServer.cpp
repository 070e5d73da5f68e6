// Test support: a private PostgreSQL server under a temporary directory, run as the `postgres`
// user when the tests run as root, with a watchdog that cleans up after a test process that died.
#include "tests/support/PgServer.h"

#include <fcntl.h>
#include <grp.h>
#include <libpq-fe.h>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <vector>

#include "tests/support/TestTree.h"

namespace ws_test {

namespace {

std::string BinDir() {
    const char* env = std::getenv("WS_PG_BIN");
    return env && *env ? env : "/usr/lib/postgresql/15/bin";
}

// The account the server runs as: `postgres` for root, else ourselves.
const struct passwd* ServerAccount() {
    return ::getuid() == 0 ? ::getpwnam("postgres") : ::getpwuid(::getuid());
}

// In a child after fork: becomes the server's account when running as root.
void BecomeServerUser(const struct passwd* pw) {
    if (::getuid() == 0 && pw != nullptr) {
        if (::setgroups(0, nullptr) != 0 || ::setgid(pw->pw_gid) != 0 || ::setuid(pw->pw_uid) != 0)
            ::_exit(126);
    }
}

}  // namespace

PgServer::~PgServer() {
    if (m_bRunning)
        Stop("immediate");
    if (!m_strDir.empty())
        RemoveTree(m_strDir);
    if (m_nWatchdogFd >= 0)
        ::close(m_nWatchdogFd);
}

bool PgServer::Run(const std::vector<std::string>& args) const {
    const struct passwd* pw = ServerAccount();
    const std::string log = m_strDir + "/tools.log";
    pid_t pid = Spawn(args, log, log, [pw] { BecomeServerUser(pw); });
    int status = 0;
    return pid > 0 && ::waitpid(pid, &status, 0) == pid && WIFEXITED(status) &&
           WEXITSTATUS(status) == 0;
}

bool PgServer::Start(std::string* error) {
    if (m_bRunning)
        return true;
    const struct passwd* pw = ServerAccount();
    if (pw == nullptr) {
        if (error)
            *error = "no account to run PostgreSQL as (the postgres user is missing)";
        return false;
    }
    std::string data;
    if (m_strDir.empty()) {
        char tmpl[] = "/tmp/wspg.XXXXXX";  // short: a socket path has a length limit
        if (::mkdtemp(tmpl) == nullptr)
            return false;
        m_strDir = tmpl;
        m_strUser = pw->pw_name;
        m_nPort = 20000 + static_cast<int>(::getpid() % 30000);
        if (::chmod(m_strDir.c_str(), 0755) != 0 ||
            (::getuid() == 0 && ::chown(m_strDir.c_str(), pw->pw_uid, pw->pw_gid) != 0))
            return false;
        data = m_strDir + "/data";
        if (!Run({BinDir() + "/initdb", "-D", data, "-A", "trust", "-U", m_strUser, "-E", "UTF8",
                  "--locale=C", "--no-sync"})) {
            if (error)
                *error = "initdb failed: " + ReadFile(m_strDir + "/tools.log");
            return false;
        }
        // The watchdog: a shell that reads the pipe until this process closes its end (or dies),
        // then stops the server and removes the directory.
        int fds[2];
        if (::pipe2(fds, O_CLOEXEC) != 0)
            return false;
        const std::string cleanup = "cat; '" + BinDir() + "/pg_ctl' -D '" + data +
                                    "' -m immediate stop >/dev/null 2>&1; rm -rf '" + m_strDir +
                                    "'";
        Spawn({"/bin/sh", "-c", cleanup}, "/dev/null", "/dev/null", [&] {
            ::dup2(fds[0], 0);  // dup2 drops close-on-exec for the copy only
            for (int fd = 3; fd < 1024; ++fd)
                ::close(fd);
            BecomeServerUser(pw);
        });
        ::close(fds[0]);
        m_nWatchdogFd = fds[1];
    }
    data = m_strDir + "/data";
    std::string options = "-k " + m_strDir + " -p " + std::to_string(m_nPort) +
                          " -c listen_addresses= -c shared_buffers=16MB -c fsync=off"
                          " -c max_connections=200 -c deadlock_timeout=100ms";
    m_bRunning = Run({BinDir() + "/pg_ctl", "-D", data, "-l", m_strDir + "/server.log", "-w", "-t",
                      "60", "-o", options, "start"});
    if (!m_bRunning && error)
        *error = "pg_ctl start failed: " + ReadFile(m_strDir + "/server.log");
    return m_bRunning;
}

bool PgServer::Stop(const char* mode) {
    if (!m_bRunning)
        return true;
    m_bRunning = !Run({BinDir() + "/pg_ctl", "-D", m_strDir + "/data", "-m", mode, "-w", "stop"});
    return !m_bRunning;
}

std::string PgServer::Dsn() const {
    return "host=" + m_strDir + " port=" + std::to_string(m_nPort) +
           " dbname=postgres user=" + m_strUser;
}

bool PgServer::Exec(const std::string& sql, std::string* value) const {
    PGconn* conn = PQconnectdb((Dsn() + " application_name=ws_test").c_str());
    PQsetNoticeProcessor(
        conn, [](void*, const char*) {}, nullptr);  // "drop cascades to ..."
    PGresult* res = PQexec(conn, sql.c_str());
    ExecStatusType st = PQresultStatus(res);
    bool ok = st == PGRES_TUPLES_OK || st == PGRES_COMMAND_OK;
    if (value != nullptr) {
        *value = !ok ? PQerrorMessage(conn)
                     : (PQntuples(res) > 0 ? PQgetvalue(res, 0, 0) : std::string());
    }
    PQclear(res);
    PQfinish(conn);
    return ok;
}

PgServer& PgServer::Shared() {
    static PgServer* server = [] {
        static pid_t owner = ::getpid();
        std::atexit([] {
            if (::getpid() == owner)  // not in a forked child that calls exit()
                delete server;
        });
        return new PgServer;
    }();
    return *server;
}

void UseEngine(const std::string& engine) {
    ::setenv("BSAPI_ENGINE", engine.c_str(), 1);
    if (engine != "postgres")
        return;
    PgServer& server = PgServer::Shared();
    std::string error;
    if (!server.Running()) {
        ASSERT_TRUE(server.Start(&error)) << error;
    }
    ::setenv("BSAPI_PG_DSN", server.Dsn().c_str(), 1);
}

}  // namespace ws_test
