// Text of many lines in one element: the time must grow with the size, not with its square.
#include <benchmark/benchmark.h>

#include <string>

#include "webs/XMLReader.h"

namespace {

// range(0): bytes of text, in lines of 32.
void readLines(benchmark::State& state) {
  const std::string line = "0123456789 0123456789 012345678\n";
  std::string text = "<a>";
  while (text.size() < static_cast<size_t>(state.range(0))) text += line;
  text += "</a>";
  webs::XMLReader reader;
  reader.initialize();
  for (auto round : state) {
    (void)round;
    reader.clear();
    reader.readyRead();
    if (reader.streamIn(text.data(), static_cast<int>(text.size()), 1) != 1) {
      state.SkipWithError("not read");
    }
  }
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(text.size()));
  state.SetComplexityN(state.range(0));
}

}  // namespace

// Compare 250 KB with 1 MB: four times the time, not sixteen.
BENCHMARK(readLines)->Arg(250000)->Arg(1000000)->Arg(4000000)->Complexity();

BENCHMARK_MAIN();
