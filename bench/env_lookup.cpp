// Settings are read on render paths (cache limits, trace switches). This
// compares the cached lookup with asking the C runtime every time.
#include <benchmark/benchmark.h>

#include <cstdlib>

#include "host/env.h"

namespace {

void BM_OrvoGetEnvIntCached(benchmark::State& state) {
    ::setenv("ORVO_BENCH_ENV", "4096", 1);
    OrvoEnvRefresh();
    for (auto _ : state)
        benchmark::DoNotOptimize(OrvoGetEnvInt("ORVO_BENCH_ENV", 0));
}
BENCHMARK(BM_OrvoGetEnvIntCached);

void BM_GetenvAndParse(benchmark::State& state) {
    ::setenv("ORVO_BENCH_ENV", "4096", 1);
    for (auto _ : state) {
        const char* raw = std::getenv("ORVO_BENCH_ENV");
        benchmark::DoNotOptimize(raw ? std::strtoll(raw, nullptr, 10) : 0);
    }
}
BENCHMARK(BM_GetenvAndParse);

} // namespace

BENCHMARK_MAIN();
