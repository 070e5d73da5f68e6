// Benchmarks of libbsapi's PostgreSQL engine against raw libpq on the same private server and the
// same schema: tree property read and write through the bs_* calls against the same statements
// prepared and run with libpq directly (one connection each), and queue push-to-pop latency across
// two processes against the raw NOTIFY round trip between the same two processes. The embedded
// engine's figures are taken in the same run, and pgbench -S on the same server is printed as a
// further reference. Ratios are printed at the end.
//
// The server is the tests' private one (tests/support/PgServer.h): Unix socket, fsync off, so the
// figures show what the client side costs rather than the disk.
#include <libpq-fe.h>
#include <poll.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "bsapi/bsapi.h"
#include "tests/support/PgServer.h"

namespace {

const unsigned short kPort = 8123;
const char* const kSchema = "bs_127.0.0.1_8123";

long long NowNs() {
    struct timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return ts.tv_sec * 1000000000LL + ts.tv_nsec;
}

void UseEngine(const char* engine) {
    setenv("BSAPI_ENGINE", engine, 1);
}

// A handle on tree "bench", main key "main", holding property "p".
void* OpenTree() {
    void* h = BS_INVALID_HANDLE;
    if (bs_treedb_open(h, "main", nullptr, "", BS_OPEN_CREATE, "bench", "127.0.0.1", kPort) != 0 ||
        bs_treedb_insert_property(h, "p", tarn::VariableData(12345), true) != 0)
        std::abort();
    return h;
}

// The raw reference: one libpq connection on the same schema, the engine's own statements
// prepared on it, run with PQexecPrepared.
struct CRaw {
    PGconn* conn = nullptr;
    std::string key;  // the key id of "bench"/"main" as 8 big-endian bytes
    CRaw() {
        void* h = OpenTree();
        bs_close_handle(h);
        conn = PQconnectdb(ws_test::PgServer::Shared().Dsn().c_str());
        PGresult* r = PQexec(conn, (std::string("SET search_path = \"") + kSchema + "\"").c_str());
        PQclear(r);
        r = PQexec(conn,
                   "SELECT k.id FROM bs_key k JOIN bs_tree t ON t.id = k.tree"
                   " WHERE t.name = 'bench' AND k.path = 'main'");
        if (PQntuples(r) != 1)
            std::abort();
        long long id = std::atoll(PQgetvalue(r, 0, 0));
        PQclear(r);
        for (int i = 7; i >= 0; --i)
            key += static_cast<char>((id >> (8 * i)) & 0xff);
        PQclear(PQprepare(conn, "get",
                          "SELECT value FROM bs_prop WHERE key = $1::bigint AND name = $2::bytea",
                          0, nullptr));
        PQclear(
            PQprepare(conn, "put",
                      "INSERT INTO bs_prop(key, name, value) VALUES($1::bigint, $2::bytea,"
                      " $3::bytea) ON CONFLICT (key, name) DO UPDATE SET value = EXCLUDED.value",
                      0, nullptr));
    }
    ~CRaw() { PQfinish(conn); }
    void Exec(const char* stmt, const std::string& value, ExecStatusType want) {
        const char* values[] = {key.data(), "p", value.data()};
        int lengths[] = {8, 1, static_cast<int>(value.size())};
        int formats[] = {1, 1, 1};
        PGresult* r =
            PQexecPrepared(conn, stmt, value.empty() ? 2 : 3, values, lengths, formats, 1);
        if (PQresultStatus(r) != want)
            std::abort();
        PQclear(r);
    }
};

// The API and the raw reference in alternating rounds of `batch` operations, so that both see the
// same load on a shared machine: the median over the rounds of each one's rate, and the median of
// the per-round ratios.
struct CRates {
    double api = 0, raw = 0, ratio = 0;
};

template <typename A, typename R>
CRates Alternate(A api, R raw, int rounds = 25, int batch = 200) {
    std::vector<double> apiRates, rawRates, ratios;
    for (int round = 0; round < rounds; ++round) {
        long long t0 = NowNs();
        for (int i = 0; i < batch; ++i)
            raw();
        long long t1 = NowNs();
        for (int i = 0; i < batch; ++i)
            api();
        long long t2 = NowNs();
        rawRates.push_back(batch * 1e9 / (t1 - t0));
        apiRates.push_back(batch * 1e9 / (t2 - t1));
        ratios.push_back(apiRates.back() / rawRates.back());
    }
    auto median = [](std::vector<double> v) {
        std::sort(v.begin(), v.end());
        return v[v.size() / 2];
    };
    return {median(apiRates), median(rawRates), median(ratios)};
}

// Tree property reads or writes through the bs_* calls on PostgreSQL against raw libpq.
CRates TreeRates(bool write) {
    UseEngine("postgres");
    CRaw raw;
    void* h = OpenTree();
    std::string value(5, '\0');  // the serial form of an int32, as the engine writes it
    value[0] = 3;
    int n = 0;
    tarn::VariableData v;
    CRates r = Alternate(
        [&] {
            int rc = write ? bs_treedb_insert_property(h, "p", tarn::VariableData(++n), true)
                           : bs_treedb_get_property(h, "p", v);
            if (rc != 0)
                std::abort();
        },
        [&] {
            if (!write)
                return raw.Exec("get", "", PGRES_TUPLES_OK);
            ++n;
            value[1] = static_cast<char>(n);
            value[2] = static_cast<char>(n >> 8);
            raw.Exec("put", value, PGRES_COMMAND_OK);
        });
    bs_close_handle(h);
    return r;
}

// Operations per second through the bs_* calls on the embedded engine.
double SqliteRate(bool write) {
    UseEngine("sqlite");
    void* h = OpenTree();
    int n = 0;
    tarn::VariableData v;
    auto op = [&] {
        int rc = write ? bs_treedb_insert_property(h, "p", tarn::VariableData(++n), true)
                       : bs_treedb_get_property(h, "p", v);
        if (rc != 0)
            std::abort();
    };
    CRates r = Alternate(op, op, 10, 1000);
    bs_close_handle(h);
    return r.api;
}

// Waits for the next notification on `conn`; its payload as a number.
long long NextNotification(PGconn* conn) {
    PGnotify* n = nullptr;
    while ((n = PQnotifies(conn)) == nullptr) {
        pollfd p{PQsocket(conn), POLLIN, 0};
        poll(&p, 1, 10000);
        PQconsumeInput(conn);
    }
    long long v = std::atoll(n->extra);
    PQfreemem(n);
    return v;
}

void Notify(PGconn* conn, const char* channel, long long value) {
    std::string text = std::to_string(value);
    const char* values[] = {channel, text.c_str()};
    PQclear(
        PQexecParams(conn, "SELECT pg_notify($1, $2)", 2, nullptr, values, nullptr, nullptr, 0));
}

enum ELatency { L_QUEUE, L_NOTIFY, L_NOTIFY_ROUND_TRIP };

// Latency across two processes. L_QUEUE: from the push here to the pop in a child; L_NOTIFY: from
// a NOTIFY here to the notification in a child; the child answers each with the latency it saw
// (by a pipe), and the next message goes out only after the answer, so every pop really sleeps.
// L_NOTIFY_ROUND_TRIP: a NOTIFY here, a NOTIFY back from the child, timed here. `count` samples
// are added to `samples`.
void Latency(std::vector<long long>& samples, const char* engine, ELatency kind, int count) {
    UseEngine(engine);
    bool raw = kind != L_QUEUE;
    int toParent[2], ready[2];
    if (pipe(toParent) != 0 || pipe(ready) != 0)
        std::abort();
    void* q = BS_INVALID_HANDLE;
    if (bs_mq_open(q, "latency", "", BS_MQ_OPEN_CREATE, 0, "127.0.0.1", kPort) != 0)
        std::abort();
    bs_mq_clear(q);
    const std::string dsn = ws_test::PgServer::Shared().Dsn();
    pid_t pid = fork();
    if (pid == 0) {
        void* c = BS_INVALID_HANDLE;
        PGconn* conn = raw ? PQconnectdb(dsn.c_str()) : nullptr;
        if (raw)
            PQclear(PQexec(conn, "LISTEN bench_ping"));
        else if (bs_mq_open(c, "latency", "", BS_MQ_OPEN_EXISTING, 0, "127.0.0.1", kPort) != 0)
            _exit(2);
        char one = 1;
        if (write(ready[1], &one, 1) != 1)
            _exit(3);
        for (;;) {
            long long sent = 0;
            if (raw) {
                sent = NextNotification(conn);
            } else {
                tarn::VariableData v;
                std::string name;
                long t;
                unsigned long long id;
                if (bs_mq_pop(c, v, name, t, id, 10000, false) != 0)
                    _exit(4);
                sent = static_cast<long long>(v);
            }
            if (sent < 0)
                _exit(0);
            if (kind == L_NOTIFY_ROUND_TRIP) {
                Notify(conn, "bench_pong", sent);
                continue;
            }
            long long lat = NowNs() - sent;
            if (write(toParent[1], &lat, sizeof lat) != sizeof lat)
                _exit(5);
        }
    }
    char one = 0;
    if (read(ready[0], &one, 1) != 1)
        std::abort();
    PGconn* conn = raw ? PQconnectdb(dsn.c_str()) : nullptr;
    if (kind == L_NOTIFY_ROUND_TRIP)
        PQclear(PQexec(conn, "LISTEN bench_pong"));
    auto send = [&](long long value) {
        unsigned long long id = 0;
        if (raw)
            Notify(conn, "bench_ping", value);
        else if (bs_mq_push(q, tarn::VariableData(value), "", id, 0) != 0)
            std::abort();
    };
    for (int i = 0; i < count; ++i) {
        long long start = NowNs(), lat = 0;
        send(start);
        if (kind == L_NOTIFY_ROUND_TRIP)
            lat = NowNs() - (NextNotification(conn), start);
        else if (read(toParent[0], &lat, sizeof lat) != sizeof lat)
            std::abort();
        samples.push_back(lat);
    }
    send(-1);
    waitpid(pid, nullptr, 0);
    for (int fd : {toParent[0], toParent[1], ready[0], ready[1]})
        close(fd);
    PQfinish(conn);
    bs_close_handle(q);
}

// Median and 99th percentile in microseconds.
std::pair<double, double> Spread(std::vector<long long> v) {
    std::sort(v.begin(), v.end());
    return {v[v.size() / 2] / 1000.0, v[v.size() * 99 / 100] / 1000.0};
}

// pgbench -S for 5 s on the same server (its own tables in the public schema); 0 when it cannot
// run.
double PgBench(const std::string& dsn) {
    std::string bin = "/usr/lib/postgresql/15/bin/pgbench";
    std::string init = bin + " -q -i -s 1 '" + dsn + "' >/dev/null 2>&1";
    if (std::system(init.c_str()) != 0)
        return 0;
    std::string run = bin + " -S -M prepared -c 1 -T 5 '" + dsn + "' 2>/dev/null";
    FILE* p = popen(run.c_str(), "r");
    if (p == nullptr)
        return 0;
    char line[256];
    double tps = 0;
    while (fgets(line, sizeof line, p) != nullptr) {
        if (std::sscanf(line, "tps = %lf", &tps) == 1)
            break;
    }
    pclose(p);
    return tps;
}

}  // namespace

int main() {
    char dir[] = "/tmp/pgbsapi_bench.XXXXXX";
    if (mkdtemp(dir) == nullptr)
        return 1;
    setenv("BSAPI_DATA_DIR", dir, 1);
    std::string error;
    if (!ws_test::PgServer::Shared().Start(&error)) {
        std::fprintf(stderr, "cannot start PostgreSQL: %s\n", error.c_str());
        return 1;
    }
    setenv("BSAPI_PG_DSN", ws_test::PgServer::Shared().Dsn().c_str(), 1);
    for (bool write : {false, true}) {
        CRates r = TreeRates(write);
        std::printf(
            "tree property %s on PostgreSQL: API %.0f/s, raw libpq %.0f/s: API at %.0f%%"
            " of the raw rate (median of 25 alternating rounds; target 70%%)\n",
            write ? "write" : "read", r.api, r.raw, 100 * r.ratio);
    }
    std::vector<long long> api, trip, oneWay, sqlite;
    for (int round = 0; round < 4; ++round) {  // alternating, as above
        Latency(trip, "postgres", L_NOTIFY_ROUND_TRIP, 500);
        Latency(oneWay, "postgres", L_NOTIFY, 500);
        Latency(api, "postgres", L_QUEUE, 500);
    }
    Latency(sqlite, "sqlite", L_QUEUE, 2000);
    auto a = Spread(api), t = Spread(trip), n = Spread(oneWay), s = Spread(sqlite);
    std::printf(
        "queue push-to-pop across two processes on PostgreSQL: median %.1f us (p99 %.1f);"
        " raw NOTIFY round trip %.1f us (p99 %.1f): %.2fx (target at most 3x); raw NOTIFY one"
        " way %.1f us (p99 %.1f): %.2fx\n",
        a.first, a.second, t.first, t.second, a.first / t.first, n.first, n.second,
        a.first / n.first);
    double sr = SqliteRate(false), sw = SqliteRate(true);
    std::printf(
        "embedded engine, same run: read %.0f/s, write %.0f/s, push-to-pop median %.1f us"
        " (p99 %.1f)\n",
        sr, sw, s.first, s.second);
    double tps = PgBench(ws_test::PgServer::Shared().Dsn());
    if (tps > 0)
        std::printf("pgbench -S (select only, 1 client, prepared), same server: %.0f tps\n", tps);
    std::string rm = std::string("rm -rf '") + dir + "'";
    return std::system(rm.c_str()) == 0 ? 0 : 1;
}
