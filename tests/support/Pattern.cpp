#include "tests/support/Pattern.h"

namespace support {

namespace {

inline unsigned char byteAt(unsigned long long i) {
  unsigned long long x = (i + 1) * 0x9E3779B97F4A7C15ULL;
  x ^= x >> 29;
  return static_cast<unsigned char>((x * 0xBF58476D1CE4E5B9ULL) >> 56);
}

}  // namespace

unsigned char patternByte(unsigned long long i) { return byteAt(i); }

void fillPattern(unsigned long long from, char* data, size_t size) {
  for (size_t i = 0; i < size; ++i) data[i] = static_cast<char>(byteAt(from + i));
}

std::string pattern(unsigned long long from, size_t size) {
  std::string text(size, '\0');
  fillPattern(from, &text[0], size);
  return text;
}

long long firstDifference(unsigned long long from, const void* data, size_t size) {
  const unsigned char* bytes = static_cast<const unsigned char*>(data);
  for (size_t i = 0; i < size; ++i) {
    if (bytes[i] != byteAt(from + i)) return static_cast<long long>(i);
  }
  return -1;
}

}  // namespace support
