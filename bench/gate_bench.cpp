// Benchmark of the request gate: Web_SessionInit for a GET with a live session cookie and ten
// plain parameters, in ns per call (the aim is at most 1 us), against a reference from the same
// run: filling a fresh map with the same ten parameters, already split and decoded (the least
// work the gate's interface asks for). Both times and their ratio are printed at the end.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <list>
#include <map>
#include <string>

#include "session/SessionApi.h"
#include "session/WebSession.h"
#include "tests/support/HostDouble.h"

namespace {

// The process-wide table with one live session among 10,000, loaded the way start-up loads
// persisted sessions.
void LoadSessions() {
    static bool loaded = [] {
        std::list<CGWebSession*> records;
        for (int i = 0; i < 10000; ++i) {
            records.push_back(new CGWebSession("bench-" + std::to_string(i),
                                               "user" + std::to_string(i), "co", 1, 0, ""));
        }
        gw_webSession.InsertLoadedSessions(records);
        return true;
    }();
    benchmark::DoNotOptimize(loaded);
}

void BM_GateGetWithLiveSession(benchmark::State& state) {
    LoadSessions();
    ws_test::HostDouble host;
    host.Method(WH_METHOD_GET)
        .Cookie("qv_lan=en; qvsessionid=bench-4242; other=1")
        .Query("p0=alpha&p1=42&p2=beta&p3=7&p4=gamma&p5=delta&p6=3.14&p7=on&p8=name&p9=last");
    std::string callback;
    for (auto _ : state) {
        std::map<std::string, std::string> params;
        const uint32_t result = Web_SessionInit(host.Info(), callback, params, 1, 1, true);
        if (result != 0 || params.size() != 10) {
            state.SkipWithError("the gate refused a plain request with a live session");
            break;
        }
        benchmark::DoNotOptimize(params);
    }
}
BENCHMARK(BM_GateGetWithLiveSession)->MinTime(1.0);

void BM_ReferenceMapFill(benchmark::State& state) {
    const std::pair<std::string, std::string> pieces[] = {
        {"p0", "alpha"}, {"p1", "42"},   {"p2", "beta"}, {"p3", "7"},    {"p4", "gamma"},
        {"p5", "delta"}, {"p6", "3.14"}, {"p7", "on"},   {"p8", "name"}, {"p9", "last"}};
    for (auto _ : state) {
        std::map<std::string, std::string> params;
        for (const auto& piece : pieces)
            params[piece.first] = piece.second;
        benchmark::DoNotOptimize(params);
    }
}
BENCHMARK(BM_ReferenceMapFill)->MinTime(1.0);

// Keeps the real and CPU time per call of each run for the ratio printed at the end.
class CTimeReporter : public benchmark::ConsoleReporter {
public:
    std::map<std::string, std::pair<double, double>> m_mapNs;
    void ReportRuns(const std::vector<Run>& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& r : runs) {
            if (!r.error_occurred)
                m_mapNs[r.benchmark_name()] = {r.GetAdjustedRealTime(), r.GetAdjustedCPUTime()};
        }
    }
};

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    CTimeReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    const auto gate = reporter.m_mapNs["BM_GateGetWithLiveSession/min_time:1.000"];
    const auto ref = reporter.m_mapNs["BM_ReferenceMapFill/min_time:1.000"];
    if (gate.first > 0 && ref.first > 0) {
        std::printf(
            "\ngate, GET with a live session: %.0f ns real, %.0f ns cpu (reference map fill "
            "%.0f ns real, %.0f ns cpu; ratio %.2f real, %.2f cpu)\n",
            gate.first, gate.second, ref.first, ref.second, gate.first / ref.first,
            gate.second / ref.second);
    }
    return 0;
}
