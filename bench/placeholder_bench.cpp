#include <benchmark/benchmark.h>
static void BM_Nothing(benchmark::State& s) { for (auto _ : s) {} }
BENCHMARK(BM_Nothing);
