// Writes the file that is served.
#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "bench/common/Pattern.h"
#include "tests/support/CommandLine.h"

int main(int argc, char** argv) {
  std::string path;
  long long size = 0;
  support::CommandLine line("Writes the file that is served.");
  line.option("PATH", &path, "Where").required();
  line.option("BYTES", &size, "How long").required().notBelow(1);
  line.parseOrExit(argc, argv);
  FILE* file = fopen(path.c_str(), "we");
  std::vector<char> chunk(1 << 20);
  bool good = file != nullptr;
  for (long long at = 0; good && at < size; at += static_cast<long long>(chunk.size())) {
    const auto count = static_cast<size_t>(std::min(size - at, 1LL << 20));
    bench::fillPattern(at, chunk.data(), count);
    good = fwrite(chunk.data(), 1, count, file) == count;
  }
  if (file != nullptr && fclose(file) != 0) good = false;
  if (!good) perror(path.c_str());
  return good ? 0 : 1;
}
