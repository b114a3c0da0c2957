#ifndef FLUVIAFS_TESTS_SUPPORT_PATTERN_H_
#define FLUVIAFS_TESTS_SUPPORT_PATTERN_H_

#include <cstddef>
#include <string>

namespace support {

// Byte i of every test resource: any read can be checked anywhere, and a resource needs no file
// and may have any size. Has no period, so bytes put at a wrong offset are seen.
inline unsigned char patternByte(unsigned long long i) {
  unsigned long long x = (i + 1) * 0x9E3779B97F4A7C15ULL;
  x ^= x >> 29;
  return static_cast<unsigned char>((x * 0xBF58476D1CE4E5B9ULL) >> 56);
}

inline void fillPattern(unsigned long long from, char* data, size_t size) {
  for (size_t i = 0; i < size; ++i) data[i] = static_cast<char>(patternByte(from + i));
}

inline std::string pattern(unsigned long long from, size_t size) {
  std::string text(size, '\0');
  fillPattern(from, &text[0], size);
  return text;
}

// Index of the first of size bytes that is not the pattern's from offset from on; -1 for none.
inline long long firstDifference(unsigned long long from, const void* data, size_t size) {
  const unsigned char* bytes = static_cast<const unsigned char*>(data);
  for (size_t i = 0; i < size; ++i) {
    if (bytes[i] != patternByte(from + i)) return static_cast<long long>(i);
  }
  return -1;
}

}  // namespace support

#endif  // FLUVIAFS_TESTS_SUPPORT_PATTERN_H_
