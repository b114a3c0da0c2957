#include "tests/support/Pattern.h"

#include <algorithm>
#include <cstring>

namespace support {

namespace {

// Always inlined, so that no instrumented copy is called.
__attribute__((always_inline)) inline unsigned char byteAt(unsigned long long i) {
  unsigned long long x = (i + 1) * 0x9E3779B97F4A7C15ULL;
  x ^= x >> 29;
  return static_cast<unsigned char>((x * 0xBF58476D1CE4E5B9ULL) >> 56);
}

constexpr size_t kPiece = 4096;

// Fills a local array that no sanitizer needs to watch byte by byte: the sanitizers watch how a
// piece is copied or compared.
__attribute__((no_sanitize("address", "thread", "undefined"))) void makePiece(
    unsigned long long from, unsigned char* piece, size_t size) {
  for (size_t i = 0; i < size; ++i) piece[i] = byteAt(from + i);
}

}  // namespace

unsigned char patternByte(unsigned long long i) { return byteAt(i); }

void fillPattern(unsigned long long from, char* data, size_t size) {
  unsigned char piece[kPiece];
  for (size_t at = 0; at < size; at += kPiece) {
    const size_t count = std::min(kPiece, size - at);
    makePiece(from + at, piece, count);
    memcpy(data + at, piece, count);
  }
}

std::string pattern(unsigned long long from, size_t size) {
  std::string text(size, '\0');
  fillPattern(from, &text[0], size);
  return text;
}

long long firstDifference(unsigned long long from, const void* data, size_t size) {
  const unsigned char* bytes = static_cast<const unsigned char*>(data);
  unsigned char piece[kPiece];
  for (size_t at = 0; at < size; at += kPiece) {
    const size_t count = std::min(kPiece, size - at);
    makePiece(from + at, piece, count);
    if (memcmp(bytes + at, piece, count) == 0) continue;
    for (size_t i = 0; i < count; ++i) {
      if (bytes[at + i] != piece[i]) return static_cast<long long>(at + i);
    }
  }
  return -1;
}

}  // namespace support
