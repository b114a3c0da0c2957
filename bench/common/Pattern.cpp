#include "bench/common/Pattern.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace bench {

namespace {

constexpr size_t kPage = 4096;

uint64_t mixed(uint64_t x) {
  x = (x + 1) * 0x9E3779B97F4A7C15ULL;
  x = (x ^ (x >> 29)) * 0xBF58476D1CE4E5B9ULL;
  return x ^ (x >> 32);
}

struct Page {
  Page() {
    for (size_t i = 0; i < kPage; i += sizeof(uint64_t)) {
      const uint64_t word = mixed(i);
      memcpy(bytes + i, &word, sizeof word);
    }
  }
  alignas(64) unsigned char bytes[kPage];
};

const unsigned char* page() {
  static const Page made;
  return made.bytes;
}

unsigned char stampByte(uint64_t stamp, size_t at) {
  return static_cast<unsigned char>(stamp >> (8 * (at % sizeof stamp)));
}

// True if data is [at, at + size) of a page with that stamp. Has no early return, so that the
// compiler uses wide comparisons.
bool same(const unsigned char* expected, size_t at, uint64_t stamp, const unsigned char* data,
          size_t size) {
  uint64_t wrong = 0;
  size_t i = 0;
  for (; i < size && (at + i) % sizeof stamp != 0; ++i) {
    wrong |= static_cast<uint64_t>(expected[at + i] ^ stampByte(stamp, at + i) ^ data[i]);
  }
  for (; i + sizeof stamp <= size; i += sizeof stamp) {
    uint64_t want;
    uint64_t have;
    memcpy(&want, expected + at + i, sizeof want);
    memcpy(&have, data + i, sizeof have);
    wrong |= want ^ stamp ^ have;
  }
  for (; i < size; ++i) {
    wrong |= static_cast<uint64_t>(expected[at + i] ^ stampByte(stamp, at + i) ^ data[i]);
  }
  return wrong == 0;
}

}  // namespace

void fillPattern(long long from, char* data, size_t size) {
  const unsigned char* expected = page();
  for (size_t i = 0; i < size; ++i) {
    const uint64_t offset = static_cast<uint64_t>(from) + i;
    const size_t at = offset % kPage;
    data[i] = static_cast<char>(expected[at] ^ stampByte(mixed(~(offset / kPage)), at));
  }
}

long long firstDifference(long long from, const char* data, size_t size) {
  const unsigned char* bytes = reinterpret_cast<const unsigned char*>(data);
  const unsigned char* expected = page();
  size_t done = 0;
  while (done < size) {
    const uint64_t offset = static_cast<uint64_t>(from) + done;
    const size_t at = offset % kPage;
    const size_t count = std::min(kPage - at, size - done);
    const uint64_t stamp = mixed(~(offset / kPage));
    if (!same(expected, at, stamp, bytes + done, count)) {
      for (size_t i = 0; i < count; ++i) {
        if (bytes[done + i] != (expected[at + i] ^ stampByte(stamp, at + i))) {
          return static_cast<long long>(done + i);
        }
      }
    }
    done += count;
  }
  return -1;
}

}  // namespace bench
