// Benchmarks of the session table: LookSession on a table of 100,000 sessions (ns per lookup),
// for hits, misses (which also ask the persisted store), and with several threads at once.
#include <benchmark/benchmark.h>

#include <list>
#include <string>
#include <vector>

#include "session/WebSession.h"

namespace {

const int kSessions = 100000;

std::string IdOf(int i) {
    return "8f3c2a1e-" + std::to_string(1000000 + i) + "-4b7d-session";
}

// One table for all runs, filled through the start-up load (which writes no log lines).
CGWebSessionColl& Table() {
    static CGWebSessionColl* table = [] {
        auto* t = new CGWebSessionColl;
        std::list<CGWebSession*> records;
        for (int i = 0; i < kSessions; ++i) {
            records.push_back(new CGWebSession(IdOf(i), "user" + std::to_string(i % 5000),
                                               "company" + std::to_string(i % 300), 1, 0,
                                               "10.0.0.1"));
        }
        t->InsertLoadedSessions(records);
        return t;
    }();
    return *table;
}

std::vector<std::string> Probes(bool hits) {
    std::vector<std::string> ids;
    for (int i = 0; i < 4096; ++i) {
        int k = static_cast<int>((static_cast<unsigned>(i) * 2654435761u) % kSessions);
        ids.push_back(hits ? IdOf(k) : IdOf(k) + "-gone");
    }
    return ids;
}

void BM_LookSessionHit(benchmark::State& state) {
    CGWebSessionColl& table = Table();
    const std::vector<std::string> ids = Probes(true);
    size_t i = 0;
    for (auto _ : state) {
        CGWebSession* s = table.LookSession(ids[i++ & 4095]);
        benchmark::DoNotOptimize(s);
        if (s == nullptr)
            state.SkipWithError("a session of the table was not found");
    }
    state.counters["sessions"] = benchmark::Counter(static_cast<double>(table.GetSessionCount()),
                                                    benchmark::Counter::kAvgThreads);
}
BENCHMARK(BM_LookSessionHit)->ThreadRange(1, 2)->UseRealTime();

void BM_LookSessionMiss(benchmark::State& state) {
    CGWebSessionColl& table = Table();
    const std::vector<std::string> ids = Probes(false);
    size_t i = 0;
    for (auto _ : state) {
        CGWebSession* s = table.LookSession(ids[i++ & 4095]);
        benchmark::DoNotOptimize(s);
    }
}
BENCHMARK(BM_LookSessionMiss);

}  // namespace

BENCHMARK_MAIN();
