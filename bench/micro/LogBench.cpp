// The cost of a log line that is not printed: the arguments must not be evaluated.
#include <benchmark/benchmark.h>

#include "util/Log.h"

namespace {

// Errors are printed at every level, so the threshold is above the default one.
void checkLevel(benchmark::State& state) {
  util::LOG_LEV = -4;
  long long evaluated = 0;
  for (auto round : state) {
    (void)round;
    FLUVIA_LOG(3, "not printed, %lld", ++evaluated);
    benchmark::ClobberMemory();
  }
  if (evaluated != 0) state.SkipWithError("printed");
}

}  // namespace

BENCHMARK(checkLevel);

BENCHMARK_MAIN();
