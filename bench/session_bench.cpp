// Benchmarks of the session table: LookSession on a table of 100,000 sessions, for hits (one and
// two threads) and misses (which also ask the persisted store), against a reference from the
// same run: a plain unordered_map find of the same ids, without any lock. Printed at the end: ns
// per hit and its ratio to the reference (aim: a hit at most 150 ns), and the lookups per second
// of two threads against one (aim: at least 1.6 on two cores).
#include <benchmark/benchmark.h>

#include <cstdio>
#include <list>
#include <map>
#include <string>
#include <unordered_map>
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
    size_t i = static_cast<size_t>(state.thread_index()) * 2048;
    for (auto _ : state) {
        CGWebSession* s = table.LookSession(ids[i++ & 4095]);
        benchmark::DoNotOptimize(s);
        if (s == nullptr)
            state.SkipWithError("a session of the table was not found");
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_LookSessionHit)->ThreadRange(1, 2)->UseRealTime()->MinTime(1.0);

// The reference: the same ids found in an unordered_map of 100,000 strings, no lock, no clock.
void BM_ReferenceHashFind(benchmark::State& state) {
    static std::unordered_map<std::string, int>* map = [] {
        auto* m = new std::unordered_map<std::string, int>;
        for (int i = 0; i < kSessions; ++i)
            (*m)[IdOf(i)] = i;
        return m;
    }();
    const std::vector<std::string> ids = Probes(true);
    size_t i = 0;
    for (auto _ : state) {
        auto it = map->find(ids[i++ & 4095]);
        benchmark::DoNotOptimize(it);
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_ReferenceHashFind)->UseRealTime()->MinTime(1.0);

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

// Keeps the items per second of each run for the ratios printed at the end.
class CRateReporter : public benchmark::ConsoleReporter {
public:
    std::map<std::string, double> m_mapRate;
    void ReportRuns(const std::vector<Run>& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& r : runs) {
            auto it = r.counters.find("items_per_second");
            if (!r.error_occurred && it != r.counters.end())
                m_mapRate[r.benchmark_name()] = it->second;
        }
    }
};

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    CRateReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    auto& rate = reporter.m_mapRate;
    const double one = rate["BM_LookSessionHit/min_time:1.000/real_time/threads:1"];
    const double two = rate["BM_LookSessionHit/min_time:1.000/real_time/threads:2"];
    const double ref = rate["BM_ReferenceHashFind/min_time:1.000/real_time"];
    if (one > 0 && two > 0 && ref > 0) {
        std::printf(
            "\nsession hit at %d sessions: %.0f ns (reference unordered_map find %.0f ns, "
            "ratio %.2f); two threads: %.2fx the lookups per second of one\n",
            kSessions, 1e9 / one, 1e9 / ref, ref / one, two / one);
    }
    return 0;
}
