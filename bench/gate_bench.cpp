// Benchmark of the request gate: Web_SessionInit for a GET with a live session cookie and ten
// plain parameters, in ns per call (the aim is at most 2 us).
#include <benchmark/benchmark.h>

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
BENCHMARK(BM_GateGetWithLiveSession);

}  // namespace

BENCHMARK_MAIN();
