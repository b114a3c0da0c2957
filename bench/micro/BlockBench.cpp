// Blocks and their pool.
#include <benchmark/benchmark.h>

#include <vector>

#include "util/BufferBlock.h"
#include "util/BufferBlockPool.h"

namespace {

constexpr unsigned int kBlock = 32768;

// range(0): bytes of a chunk. A whole block is filled and read back by chunks.
void fillAndDrain(benchmark::State& state) {
  const auto chunk = static_cast<unsigned int>(state.range(0));
  std::vector<unsigned char> bytes(chunk, 'x');
  util::BufferBlock block(kBlock, 1);
  for (auto round : state) {
    (void)round;
    block.setBeginningSeqNum(0, true);
    while (block.sizeOfFree() > 0) block.in(bytes.data(), chunk);
    unsigned int got = 0;
    for (unsigned int at = 0; at < kBlock; at += got) block.out(at, bytes.data(), chunk, &got);
    benchmark::DoNotOptimize(bytes.data());
  }
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(kBlock));
}

void popAndPush(benchmark::State& state) {
  util::BufferBlockPool pool(kBlock);
  for (auto round : state) {
    (void)round;
    util::BufferBlock* block = pool.pop();
    benchmark::DoNotOptimize(block);
    pool.push(block);
  }
}

}  // namespace

BENCHMARK(fillAndDrain)->Arg(188)->Arg(4096)->Arg(16384)->Arg(32768);
BENCHMARK(popAndPush);

BENCHMARK_MAIN();
