// Runs a fuzz target over stored inputs, for builds without libFuzzer: each argument is a file, or
// a directory of files. Fails if there is nothing to run.
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "tests/ordeal/fuzz/FuzzTarget.h"

namespace {

namespace fs = std::filesystem;

std::vector<fs::path> inputsOf(const fs::path& argument) {
  std::vector<fs::path> found;
  if (!fs::is_directory(argument)) return {argument};
  for (const fs::directory_entry& entry : fs::directory_iterator(argument)) {
    if (entry.is_regular_file()) found.push_back(entry.path());
  }
  std::sort(found.begin(), found.end());
  return found;
}

bool run(const fs::path& input) {
  std::ifstream file(input, std::ios::binary);
  if (!file) {
    std::fprintf(stderr, "cannot read %s\n", input.c_str());
    return false;
  }
  // The exact size, on the heap, so that a sanitizer notices a read beyond it.
  const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
  std::fprintf(stderr, "%s\n", input.c_str());
  LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  int count = 0;
  for (int i = 1; i < argc; i++) {
    for (const fs::path& input : inputsOf(argv[i])) {
      if (!run(input)) return 1;
      count++;
    }
  }
  std::fprintf(stderr, "%d inputs\n", count);
  return count > 0 ? 0 : 1;
}
