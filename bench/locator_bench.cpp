// A tree property read through a fresh CQvHandleLoc (allocate from the pool, read, free) against
// the same read through libbsapi directly on an open handle, in one run; the ratio of the times
// is printed at the end (target: the locator at most 10% slower).
#include <benchmark/benchmark.h>
#include <stdlib.h>

#include <cstdio>
#include <filesystem>
#include <map>
#include <string>

#include "bsapi/bsapi.h"
#include "db/QvHandle.h"

namespace {

const char* const kAddress = "127.0.0.1";
const int kPort = 29100;

void Seed() {
    void* h = BS_INVALID_HANDLE;
    if (bs_treedb_open(h, "main", nullptr, "", BS_OPEN_CREATE, "bench", kAddress, kPort) != 0 ||
        bs_treedb_insert_property(h, "value", tarn::VariableData(12345), true) != 0) {
        std::fprintf(stderr, "cannot seed the benchmark tree\n");
        std::abort();
    }
    bs_close_handle(h);
}

void BM_TreeRead_Direct(benchmark::State& state) {
    void* h = BS_INVALID_HANDLE;
    if (bs_treedb_open(h, "main", nullptr, "", BS_OPEN_CREATE, "bench", kAddress, kPort) != 0) {
        state.SkipWithError("open failed");
        return;
    }
    for (auto _ : state) {
        tarn::VariableData v;
        if (bs_treedb_get_property(h, "value", v) != 0)
            state.SkipWithError("read failed");
        benchmark::DoNotOptimize(static_cast<int>(v));
    }
    bs_close_handle(h);
}

void BM_TreeRead_Locator(benchmark::State& state) {
    for (auto _ : state) {
        CQvHandleLoc loc;
        if (loc.Treedb_Alloc(kAddress, "bench", "main", "", -1, kPort) != 0) {
            state.SkipWithError("allocation failed");
        }
        tarn::VariableData v;
        if (loc.Treedb_GetProperty("value", v) != 0)
            state.SkipWithError("read failed");
        benchmark::DoNotOptimize(static_cast<int>(v));
    }
}

// Diagnostic: the direct read preceded by the keep-alive probe that the locator makes before it
// reuses a pooled connection, to tell the probe's share of the difference from the locator's own.
void BM_TreeRead_DirectProbe(benchmark::State& state) {
    void* h = BS_INVALID_HANDLE;
    if (bs_treedb_open(h, "main", nullptr, "", BS_OPEN_CREATE, "bench", kAddress, kPort) != 0) {
        state.SkipWithError("open failed");
        return;
    }
    for (auto _ : state) {
        tarn::VariableData v;
        if (bs_handle_keep_live(h) != 0 || bs_treedb_get_property(h, "value", v) != 0) {
            state.SkipWithError("read failed");
        }
        benchmark::DoNotOptimize(static_cast<int>(v));
    }
    bs_close_handle(h);
}

// Alternating runs, so that a slow phase of the machine does not favour one side.
BENCHMARK(BM_TreeRead_Direct)->MinTime(1.0);
BENCHMARK(BM_TreeRead_Locator)->MinTime(1.0);
BENCHMARK(BM_TreeRead_DirectProbe)->MinTime(1.0);
BENCHMARK(BM_TreeRead_Direct)->MinTime(1.0);
BENCHMARK(BM_TreeRead_Locator)->MinTime(1.0);
BENCHMARK(BM_TreeRead_DirectProbe)->MinTime(1.0);

// Console output as usual, plus the best CPU and real time per read of each side. The machine
// is shared, so the CPU time is the steadier figure; both ratios are printed.
class BestTimeReporter : public benchmark::ConsoleReporter {
public:
    std::map<std::string, double> m_mapCpu, m_mapReal;  // nanoseconds per iteration
    void ReportRuns(const std::vector<Run>& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs) {
            if (run.iterations == 0 || run.error_occurred)
                continue;
            std::string name = run.benchmark_name();
            name = name.substr(0, name.find('/'));
            Keep(m_mapCpu, name, run.GetAdjustedCPUTime());
            Keep(m_mapReal, name, run.GetAdjustedRealTime());
        }
    }

private:
    static void Keep(std::map<std::string, double>& best, const std::string& name, double ns) {
        auto it = best.find(name);
        if (it == best.end() || ns < it->second)
            best[name] = ns;
    }
};

void PrintRatio(const char* what, std::map<std::string, double>& best) {
    double direct = best["BM_TreeRead_Direct"];
    double probe = best["BM_TreeRead_DirectProbe"];
    double locator = best["BM_TreeRead_Locator"];
    if (direct <= 0 || locator <= 0)
        return;
    std::printf(
        "tree property read (%s): locator %.2f us, direct %.2f us, ratio %.3f "
        "(target <= 1.10); direct with keep-alive probe %.2f us, locator against it %.3f\n",
        what, locator / 1000.0, direct / 1000.0, locator / direct, probe / 1000.0,
        probe > 0 ? locator / probe : 0.0);
}

}  // namespace

int main(int argc, char** argv) {
    // The engine's files go to a private directory, removed afterwards.
    char dir[] = "/tmp/locator_bench.XXXXXX";
    if (::mkdtemp(dir) == nullptr)
        return 2;
    ::setenv("BSAPI_DATA_DIR", dir, 1);
    Seed();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    BestTimeReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    std::printf("\n");
    PrintRatio("cpu", reporter.m_mapCpu);
    PrintRatio("real", reporter.m_mapReal);
    std::error_code ec;
    std::filesystem::remove_all(dir, ec);
    return 0;
}
