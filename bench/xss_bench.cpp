// Benchmarks of BSCheckXSS per parameter: plain values (no "<": no tag scan) and values with
// markup, against a plain lower-case-and-scan of every value as the reference.
#include <benchmark/benchmark.h>

#include <cctype>
#include <map>
#include <string>

#include "protect/XssFilter.h"

namespace {

using Params = std::map<std::string, std::string>;

Params MakeParams(int count, const std::string& value) {
    Params p;
    for (int i = 0; i < count; ++i)
        p["param" + std::to_string(i)] = value;
    return p;
}

void Run(benchmark::State& state, const std::string& value) {
    const Params base = MakeParams(static_cast<int>(state.range(0)), value);
    for (auto _ : state) {
        Params p = base;  // a refusal rewrites the value, so every round starts afresh
        benchmark::DoNotOptimize(BSCheckXSS(p));
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}

void BM_XssPlainValues(benchmark::State& state) {
    Run(state, "user name 42 with some ordinary text, 1 > 0 & more");
}
BENCHMARK(BM_XssPlainValues)->Arg(20);

// Markup that passes ("a<b>c" is neither a listed tag nor wrapped), so every parameter is
// scanned against all 37 tags.
void BM_XssMarkupValues(benchmark::State& state) {
    Run(state, "see <b>bold</b> and <i>italic</i> text, 1 < 2");
}
BENCHMARK(BM_XssMarkupValues)->Arg(20);

// A refused parameter: the walk stops at the first one.
void BM_XssRefusedValue(benchmark::State& state) {
    Run(state, "<SCRIPT>alert(1)</SCRIPT>");
}
BENCHMARK(BM_XssRefusedValue)->Arg(1);

// Reference: lowering, blank removal and the tag scan done for every plain value.
void BM_ReferenceScanPlain(benchmark::State& state) {
    const Params base = MakeParams(static_cast<int>(state.range(0)),
                                   "user name 42 with some ordinary text, 1 > 0 & more");
    Params warm;
    BSCheckXSS(warm);  // fills the tag list
    for (auto _ : state) {
        int hits = 0;
        for (const auto& kv : base) {
            std::string test;
            for (char c : kv.second) {
                if (c != ' ')
                    test += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
            }
            for (const auto& tag : g_lstHtTag)
                hits += test.find(tag) != std::string::npos;
        }
        benchmark::DoNotOptimize(hits);
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}
BENCHMARK(BM_ReferenceScanPlain)->Arg(20);

}  // namespace

BENCHMARK_MAIN();
