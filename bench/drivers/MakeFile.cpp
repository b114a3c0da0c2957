// Writes the file that is served: bench-make-file PATH BYTES
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "bench/common/Pattern.h"

int main(int argc, char** argv) {
  const long long size = argc == 3 ? atoll(argv[2]) : 0;
  if (size <= 0) {
    fprintf(stderr, "usage: %s PATH BYTES\n", argv[0]);
    return 2;
  }
  FILE* file = fopen(argv[1], "we");
  std::vector<char> chunk(1 << 20);
  bool good = file != nullptr;
  for (long long at = 0; good && at < size; at += static_cast<long long>(chunk.size())) {
    const auto count = static_cast<size_t>(std::min(size - at, 1LL << 20));
    bench::fillPattern(at, chunk.data(), count);
    good = fwrite(chunk.data(), 1, count, file) == count;
  }
  if (file != nullptr && fclose(file) != 0) good = false;
  if (!good) perror(argv[1]);
  return good ? 0 : 1;
}
