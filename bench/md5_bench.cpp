// MD5 throughput on 16 KiB blocks: our MD5 against OpenSSL's in the same process, with the ratio
// of their rates printed at the end (target: ours at 90% of OpenSSL's bytes per second or more).
#include <benchmark/benchmark.h>
#include <openssl/md5.h>

#include <cstdio>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "common/md5.h"

namespace {

const size_t kBlock = 16 * 1024;

const std::vector<unsigned char>& Input() {
    static const std::vector<unsigned char> data = [] {
        std::vector<unsigned char> d(kBlock);
        std::mt19937 rng(7);
        for (auto& b : d)
            b = static_cast<unsigned char>(rng());
        return d;
    }();
    return data;
}

// One digest of a 16 KiB block per iteration.
void BM_Md5_Ours(benchmark::State& state) {
    const auto& in = Input();
    for (auto _ : state) {
        class MD5 md5(in.data(), in.size());  // "class": OpenSSL also declares a function MD5
        benchmark::DoNotOptimize(md5.digest());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * kBlock);
}

// The low-level MD5 calls are deprecated in OpenSSL 3 but remain its fastest path; the
// deprecation is silenced for the reference only.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
void BM_Md5_OpenSSL(benchmark::State& state) {
    const auto& in = Input();
    unsigned char out[MD5_DIGEST_LENGTH];
    for (auto _ : state) {
        MD5_CTX ctx;
        MD5_Init(&ctx);
        MD5_Update(&ctx, in.data(), in.size());
        MD5_Final(out, &ctx);
        benchmark::DoNotOptimize(out);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * kBlock);
}
#pragma GCC diagnostic pop

BENCHMARK(BM_Md5_OpenSSL)->MinTime(1.0);
BENCHMARK(BM_Md5_Ours)->MinTime(1.0);
BENCHMARK(BM_Md5_OpenSSL)->MinTime(1.0);
BENCHMARK(BM_Md5_Ours)->MinTime(1.0);

// Console output as usual, plus the best rate of each implementation.
class RateReporter : public benchmark::ConsoleReporter {
public:
    std::map<std::string, double> m_mapBest;
    void ReportRuns(const std::vector<Run>& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs) {
            auto it = run.counters.find("bytes_per_second");
            if (it == run.counters.end())
                continue;
            std::string name = run.benchmark_name();
            double& best = m_mapBest[name.substr(0, name.find('/'))];
            if (it->second.value > best)
                best = it->second.value;
        }
    }
};

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    RateReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    double ours = reporter.m_mapBest["BM_Md5_Ours"];
    double ref = reporter.m_mapBest["BM_Md5_OpenSSL"];
    if (ours > 0 && ref > 0) {
        std::printf("MD5 16 KiB: ours %.1f MB/s, OpenSSL %.1f MB/s, ratio %.3f (target >= 0.90)\n",
                    ours / 1e6, ref / 1e6, ours / ref);
    }
    return 0;
}
