// Benchmarks of Url::DecodeUrl (bytes per second), against a plain copy of the same text as
// the reference measured in the same run.
#include <benchmark/benchmark.h>

#include <random>
#include <string>

#include "web/Url.h"

namespace {

// A form body as pages send it: names, values with escapes and "+" for blanks.
std::string MakeEncoded(size_t size, int escapedPercent) {
    std::mt19937 rng(1);
    std::string out;
    while (out.size() < size) {
        const int r = static_cast<int>(rng() % 100);
        if (r < escapedPercent) {
            static const char hex[] = "0123456789ABCDEF";
            out += '%';
            out += hex[rng() % 16];
            out += hex[rng() % 16];
        } else if (r < escapedPercent + 5) {
            out += '+';
        } else {
            out += static_cast<char>('a' + rng() % 26);
        }
    }
    return out;
}

void BM_DecodeUrl(benchmark::State& state) {
    const std::string text =
        MakeEncoded(static_cast<size_t>(state.range(0)), static_cast<int>(state.range(1)));
    for (auto _ : state) {
        std::string out = Url::DecodeUrl(text, false);
        benchmark::DoNotOptimize(out);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                            static_cast<int64_t>(text.size()));
}
BENCHMARK(BM_DecodeUrl)->Args({1 << 10, 10})->Args({64 << 10, 10})->Args({64 << 10, 60});

void BM_DecodeUrlBuffer(benchmark::State& state) {
    const std::string text = MakeEncoded(static_cast<size_t>(state.range(0)), 10);
    std::string out(text.size() + 1, '\0');
    for (auto _ : state) {
        int length = 0;
        benchmark::DoNotOptimize(Url::DecodeUrl(text.c_str(), &out[0], length));
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                            static_cast<int64_t>(text.size()));
}
BENCHMARK(BM_DecodeUrlBuffer)->Arg(64 << 10);

// Reference: copying the same number of bytes into a new string.
void BM_ReferenceCopy(benchmark::State& state) {
    const std::string text = MakeEncoded(static_cast<size_t>(state.range(0)), 10);
    for (auto _ : state) {
        std::string out(text.c_str());
        benchmark::DoNotOptimize(out);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                            static_cast<int64_t>(text.size()));
}
BENCHMARK(BM_ReferenceCopy)->Arg(64 << 10);

}  // namespace

BENCHMARK_MAIN();
