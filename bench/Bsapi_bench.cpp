// Benchmarks of libbsapi: tree property read and write through the API against raw SQLite prepared
// statements on the same schema and file settings, and queue push-to-pop latency across two
// processes against a pipe round trip between the same two processes. Ratios are printed at the
// end.
#include <benchmark/benchmark.h>
#include <sqlite3.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "bsapi/bsapi.h"

namespace {

std::string g_strDataDir;
const unsigned short kPort = 8123;

long long NowNs() {
    struct timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return ts.tv_sec * 1000000000LL + ts.tv_nsec;
}

// A tree "bench" with one key holding property "p"; the raw reference uses its own copy "raw" of
// the same schema, so both write to files of the same shape and settings.
void* OpenTree(const char* tree) {
    void* h = BS_INVALID_HANDLE;
    if (bs_treedb_open(h, "main", nullptr, "", BS_OPEN_CREATE, tree, "127.0.0.1", kPort) != BS_OK)
        std::abort();
    if (bs_treedb_insert_property(h, "p", tarn::VariableData(12345), true) != BS_OK)
        std::abort();
    return h;
}

struct CRaw {
    sqlite3* db = nullptr;
    sqlite3_stmt* get = nullptr;
    sqlite3_stmt* put = nullptr;
    long long key = 0;
    CRaw() {
        void* h = OpenTree("raw");
        bs_close_handle(h);
        std::string file = g_strDataDir + "/127.0.0.1_8123/tree_raw.db";
        if (sqlite3_open_v2(file.c_str(), &db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX,
                            nullptr))
            std::abort();
        sqlite3_busy_timeout(db, 5000);
        sqlite3_exec(db, "PRAGMA journal_mode=WAL; PRAGMA synchronous=NORMAL", nullptr, nullptr,
                     nullptr);
        sqlite3_prepare_v2(db, "SELECT tag, value FROM bs_prop WHERE key=?1 AND name=?2", -1, &get,
                           nullptr);
        sqlite3_prepare_v2(
            db,
            "INSERT INTO bs_prop(key, name, tag, value) VALUES(?1, ?2, ?3, ?4)"
            " ON CONFLICT(key, name) DO UPDATE SET tag=excluded.tag, value=excluded.value",
            -1, &put, nullptr);
        sqlite3_stmt* k = nullptr;
        sqlite3_prepare_v2(db, "SELECT id FROM bs_key WHERE path='main'", -1, &k, nullptr);
        if (sqlite3_step(k) != SQLITE_ROW)
            std::abort();
        key = sqlite3_column_int64(k, 0);
        sqlite3_finalize(k);
    }
    ~CRaw() {
        sqlite3_finalize(get);
        sqlite3_finalize(put);
        sqlite3_close(db);
    }
};

void BM_TreeRead_Raw(benchmark::State& state) {
    CRaw raw;
    for (auto _ : state) {
        sqlite3_reset(raw.get);
        sqlite3_bind_int64(raw.get, 1, raw.key);
        sqlite3_bind_text(raw.get, 2, "p", 1, SQLITE_STATIC);
        if (sqlite3_step(raw.get) != SQLITE_ROW)
            std::abort();
        tarn::VariableData v(static_cast<int>(sqlite3_column_int64(raw.get, 1)));
        benchmark::DoNotOptimize(v);
    }
}

void BM_TreeRead_Api(benchmark::State& state) {
    void* h = OpenTree("bench");
    tarn::VariableData v;
    for (auto _ : state) {
        if (bs_treedb_get_property(h, "p", v) != BS_OK)
            std::abort();
        benchmark::DoNotOptimize(v);
    }
    bs_close_handle(h);
}

void BM_TreeWrite_Raw(benchmark::State& state) {
    CRaw raw;
    int i = 0;
    for (auto _ : state) {
        sqlite3_reset(raw.put);
        sqlite3_bind_int64(raw.put, 1, raw.key);
        sqlite3_bind_text(raw.put, 2, "p", 1, SQLITE_STATIC);
        sqlite3_bind_int(raw.put, 3, 3);
        sqlite3_bind_int64(raw.put, 4, ++i);
        if (sqlite3_step(raw.put) != SQLITE_DONE)
            std::abort();
    }
}

void BM_TreeWrite_Api(benchmark::State& state) {
    void* h = OpenTree("bench");
    int i = 0;
    for (auto _ : state) {
        if (bs_treedb_insert_property(h, "p", tarn::VariableData(++i), true) != BS_OK)
            std::abort();
    }
    bs_close_handle(h);
}

// Push-to-pop latency: the child pops with a long timeout and answers each message with the
// latency it saw; the parent pushes the next one only after the answer, so the queue stays empty
// and every pop really sleeps. The reference does the same with a pipe instead of the queue.
void Latency(benchmark::State& state, bool useQueue) {
    int toChild[2], toParent[2];
    if (pipe(toChild) != 0 || pipe(toParent) != 0)
        std::abort();
    void* q = BS_INVALID_HANDLE;
    if (bs_mq_open(q, "latency", "", BS_MQ_OPEN_CREATE, 0, "127.0.0.1", kPort) != BS_OK)
        std::abort();
    bs_mq_clear(q);
    pid_t pid = fork();
    if (pid == 0) {
        void* c = BS_INVALID_HANDLE;
        if (bs_mq_open(c, "latency", "", BS_MQ_OPEN_EXISTING, 0, "127.0.0.1", kPort) != BS_OK)
            _exit(2);
        for (;;) {
            long long sent = 0;
            if (useQueue) {
                tarn::VariableData v;
                std::string name;
                long t;
                unsigned long long id;
                if (bs_mq_pop(c, v, name, t, id, 10000, false) != BS_OK)
                    _exit(3);
                sent = static_cast<long long>(v);
            } else if (read(toChild[0], &sent, sizeof sent) != sizeof sent) {
                _exit(4);
            }
            if (sent < 0)
                _exit(0);
            long long lat = NowNs() - sent;
            if (write(toParent[1], &lat, sizeof lat) != sizeof lat)
                _exit(5);
        }
    }
    std::vector<long long> samples;
    for (auto _ : state) {
        long long now = NowNs();
        unsigned long long id = 0;
        if (useQueue) {
            if (bs_mq_push(q, tarn::VariableData(now), "", id, 0) != BS_OK)
                std::abort();
        } else if (write(toChild[1], &now, sizeof now) != sizeof now) {
            std::abort();
        }
        long long lat = 0;
        if (read(toParent[0], &lat, sizeof lat) != sizeof lat)
            std::abort();
        samples.push_back(lat);
    }
    long long stop = -1;
    unsigned long long id = 0;
    if (useQueue) {
        bs_mq_push(q, tarn::VariableData(stop), "", id, 0);
    } else if (write(toChild[1], &stop, sizeof stop) != sizeof stop) {
        std::abort();
    }
    waitpid(pid, nullptr, 0);
    for (int fd : {toChild[0], toChild[1], toParent[0], toParent[1]})
        close(fd);
    bs_close_handle(q);
    std::sort(samples.begin(), samples.end());
    state.counters["median_us"] = samples[samples.size() / 2] / 1000.0;
    state.counters["p99_us"] = samples[samples.size() * 99 / 100] / 1000.0;
}

void BM_QueueLatency_Pipe(benchmark::State& state) {
    Latency(state, false);
}
void BM_QueueLatency_Api(benchmark::State& state) {
    Latency(state, true);
}

BENCHMARK(BM_TreeRead_Raw)->Repetitions(5)->ReportAggregatesOnly(true);
BENCHMARK(BM_TreeRead_Api)->Repetitions(5)->ReportAggregatesOnly(true);
BENCHMARK(BM_TreeWrite_Raw)->Repetitions(5)->ReportAggregatesOnly(true);
BENCHMARK(BM_TreeWrite_Api)->Repetitions(5)->ReportAggregatesOnly(true);
BENCHMARK(BM_QueueLatency_Pipe)->Iterations(2000)->UseRealTime();
BENCHMARK(BM_QueueLatency_Api)->Iterations(2000)->UseRealTime();

// Keeps each run's time per iteration so that the ratios can be printed after the runs.
class CRatioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& r : runs) {
            m_mapNs[r.benchmark_name()] = r.GetAdjustedRealTime();
            for (const auto& c : r.counters)
                m_mapCounters[r.benchmark_name() + "." + c.first] = c.second;
        }
        ConsoleReporter::ReportRuns(runs);
    }
    void PrintRatios() {
        auto ratio = [&](const char* what, const std::string& api, const std::string& raw) {
            if (m_mapNs.count(api) && m_mapNs.count(raw) && m_mapNs[api] > 0) {
                std::printf("%s: API at %.0f%% of the raw SQLite rate\n", what,
                            100.0 * m_mapNs[raw] / m_mapNs[api]);
            }
        };
        // Medians of five repetitions each: single runs of the writes swing with WAL checkpoints.
        ratio("tree property read", "BM_TreeRead_Api/repeats:5_median",
              "BM_TreeRead_Raw/repeats:5_median");
        ratio("tree property write", "BM_TreeWrite_Api/repeats:5_median",
              "BM_TreeWrite_Raw/repeats:5_median");
        const std::string q = "BM_QueueLatency_Api/iterations:2000/real_time.";
        const std::string p = "BM_QueueLatency_Pipe/iterations:2000/real_time.";
        if (m_mapCounters.count(q + "median_us") && m_mapCounters.count(p + "median_us")) {
            const double qm = m_mapCounters[q + "median_us"], q99 = m_mapCounters[q + "p99_us"];
            const double pm = m_mapCounters[p + "median_us"], p99 = m_mapCounters[p + "p99_us"];
            std::printf(
                "queue push-to-pop across processes: median %.1f us, p99 %.1f us"
                " (pipe reference: median %.1f us, p99 %.1f us; ratios %.2f and %.2f, targets"
                " <= 2 and <= 4)\n",
                qm, q99, pm, p99, qm / pm, q99 / p99);
        }
    }

private:
    std::map<std::string, double> m_mapNs;
    std::map<std::string, benchmark::Counter> m_mapCounters;
};

}  // namespace

int main(int argc, char** argv) {
    char dir[] = "/tmp/bsapi_bench.XXXXXX";
    if (mkdtemp(dir) == nullptr)
        return 1;
    g_strDataDir = dir;
    setenv("BSAPI_DATA_DIR", dir, 1);
    benchmark::Initialize(&argc, argv);
    CRatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    reporter.PrintRatios();
    benchmark::Shutdown();
    std::string rm = std::string("rm -rf '") + dir + "'";
    return std::system(rm.c_str()) == 0 ? 0 : 1;
}
