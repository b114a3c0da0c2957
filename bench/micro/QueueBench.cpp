// The buffer queue between one thread's streamIn() and its read(): no waiting, no switches.
#include <benchmark/benchmark.h>

#include "bench/common/OneThreadQueue.h"

namespace {

// range(0): bytes of a chunk; range(1): bytes of a read.
void passBlock(benchmark::State& state) {
  bench::OneThreadQueue queue;
  if (!queue.start()) {
    state.SkipWithError("did not start");
    return;
  }
  const auto chunk = static_cast<unsigned int>(state.range(0));
  const auto read = static_cast<unsigned int>(state.range(1));
  for (auto round : state) {
    (void)round;
    if (!queue.pass(chunk, read)) {
      state.SkipWithError("did not pass");
      return;
    }
  }
  if (!queue.rightBlock()) state.SkipWithError("wrong bytes");
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(bench::OneThreadQueue::kBlock));
}

}  // namespace

BENCHMARK(passBlock)->ArgsProduct({{4096, 16384, 32768}, {256, 4096, 32768}});

BENCHMARK_MAIN();
