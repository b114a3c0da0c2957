// Finding a handle: with one open, and with all of them.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <vector>

#include "api/fluviafs.h"

namespace {

// range(0): open handles, all of one missing file; the last one is looked up.
void findHandle(benchmark::State& state) {
  std::vector<int> handles(static_cast<size_t>(state.range(0)), 0);
  for (int& handle : handles) {
    if (x_fluvia_file_open("/nonexistent/bench", &handle) != FVFR_OK) {
      state.SkipWithError("cannot open");
      return;
    }
  }
  for (auto round : state) {
    (void)round;
    benchmark::DoNotOptimize(x_fluvia_file_offset(handles.back()));
  }
  for (const int handle : handles) x_fluvia_file_close(handle);
}

}  // namespace

BENCHMARK(findHandle)->Arg(1)->Arg(255);

BENCHMARK_MAIN();
