// Test support: a private PostgreSQL server (initdb + pg_ctl, data and socket directory under a
// new temporary directory, a port of its own) and the switch that points the bs_* calls at an
// engine, so that one parameterised suite runs on both engines.
#pragma once

#include <gtest/gtest.h>

#include <string>

namespace ws_test {

// The server runs PostgreSQL 15 from /usr/lib/postgresql/15/bin ($WS_PG_BIN overrides). As root
// it runs as Debian's `postgres` user, which the server requires. Settings are tuned for tests:
// 16 MB of shared buffers, fsync off (commits still reach the kernel before they are
// acknowledged, so a killed server loses nothing it acknowledged), deadlocks found after 100 ms,
// Unix socket only. A watchdog process stops the server and removes its directory should the test
// process die.
class PgServer {
public:
    PgServer() = default;
    ~PgServer();
    PgServer(const PgServer&) = delete;
    PgServer& operator=(const PgServer&) = delete;

    // Creates the cluster (first time only) and starts the server; false with `error` set.
    bool Start(std::string* error = nullptr);
    // pg_ctl stop with `mode` ("fast" ends sessions cleanly, "immediate" is a crash).
    bool Stop(const char* mode = "fast");
    bool Running() const { return m_bRunning; }

    // "host=<socket dir> port=<port> dbname=postgres user=<superuser>".
    std::string Dsn() const;
    // Runs `sql` as the superuser; the first column of the first row ("" when none). False when
    // the statement failed (the message in `value`).
    bool Exec(const std::string& sql, std::string* value = nullptr) const;

    // One server for the whole test program, started at first use and stopped at its end.
    static PgServer& Shared();

private:
    // Runs a server tool as the server's account; true when it exited with 0.
    bool Run(const std::vector<std::string>& args) const;

    std::string m_strDir;  // the temporary directory: data/, the socket, server.log
    std::string m_strUser;
    int m_nPort = 0;
    bool m_bRunning = false;
    int m_nWatchdogFd = -1;  // closing it (or dying) tells the watchdog to clean up
};

// Points the bs_* calls of this process (and of processes it starts) at `engine`: "sqlite" or
// "postgres" (the shared server, started on first use).
void UseEngine(const std::string& engine);

// The engines every parameterised suite runs on, and a test-name suffix for each.
#define WS_ON_EVERY_ENGINE(Fixture)                                \
    INSTANTIATE_TEST_SUITE_P(                                      \
        Engines, Fixture, ::testing::Values("sqlite", "postgres"), \
        [](const ::testing::TestParamInfo<const char*>& i) { return std::string(i.param); })

}  // namespace ws_test
