#ifndef FLUVIAFS_TESTS_SUPPORT_PATTERN_H_
#define FLUVIAFS_TESTS_SUPPORT_PATTERN_H_

#include <cstddef>
#include <string>

namespace support {

// Byte i of every test resource. So any read can be checked at any offset, and a resource needs no
// file and may have any size. Has no period, so bytes at a wrong offset are noticed.
unsigned char patternByte(unsigned long long i);

void fillPattern(unsigned long long from, char* data, size_t size);

std::string pattern(unsigned long long from, size_t size);

// Returns the index of the first of size bytes that differs from the pattern from offset from on;
// -1 if none does.
long long firstDifference(unsigned long long from, const void* data, size_t size);

}  // namespace support

#endif  // FLUVIAFS_TESTS_SUPPORT_PATTERN_H_
