// libcurl into a ring of 2 MiB without a reader: the least cost of receiving the bytes. Has the
// sequential workload only, at the size of libcurl's own chunks; an operation is a chunk's copy and
// check.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <vector>

#include "bench/common/Pattern.h"
#include "bench/common/Statistics.h"
#include "bench/drivers/Curl.h"

namespace {

struct Ring {
  explicit Ring(int size) : bytes(static_cast<size_t>(size)) {}
  std::vector<char> bytes;
  long long position = 0;
  bool wrong = false;
  bench::Histogram chunks;
};

size_t store(char* data, size_t, size_t size, void* receiver) {
  Ring* ring = static_cast<Ring*>(receiver);
  const bench::Clock::time_point begin = bench::Clock::now();
  size_t done = 0;
  while (done < size) {
    const size_t at = static_cast<size_t>(ring->position) % ring->bytes.size();
    const size_t count = std::min(size - done, ring->bytes.size() - at);
    memcpy(&ring->bytes[at], data + done, count);
    if (bench::firstDifference(ring->position, &ring->bytes[at], count) >= 0) ring->wrong = true;
    ring->position += static_cast<long long>(count);
    done += count;
  }
  ring->chunks.note(bench::Clock::now() - begin);
  return ring->wrong ? 0 : size;
}

}  // namespace

int main(int argc, char** argv) {
  const bench::Options options = bench::parseOptions(argc, argv);
  if (options.workload != "sequential" || !options.mode.empty()) {
    fprintf(stderr, "%s: no such workload or mode\n", argv[0]);
    return 2;
  }
  bench::Measurement measurement;
  measurement.start();
  Ring ring(options.buffer);
  CURL* curl = bench::makeCurl(options, options.url, store, &ring);
  const CURLcode code = curl == nullptr ? CURLE_FAILED_INIT : curl_easy_perform(curl);
  curl_easy_cleanup(curl);
  measurement.stop();
  if (code != CURLE_OK || ring.wrong || ring.position != options.size) {
    fprintf(stderr, "%s: %s after %lld bytes\n", ring.wrong ? "wrong byte" : "failed",
            curl_easy_strerror(code), ring.position);
    return 1;
  }
  measurement.print(ring.chunks, ring.position, "");
  return 0;
}
