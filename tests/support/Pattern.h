#ifndef FLUVIAFS_TESTS_SUPPORT_PATTERN_H_
#define FLUVIAFS_TESTS_SUPPORT_PATTERN_H_

#include <cstddef>
#include <string>

namespace support {

// Byte i of every test resource: any read can be checked anywhere, and a resource needs no file
// and may have any size. Has no period, so bytes put at a wrong offset are seen.
unsigned char patternByte(unsigned long long i);

void fillPattern(unsigned long long from, char* data, size_t size);

std::string pattern(unsigned long long from, size_t size);

// Index of the first of size bytes that is not the pattern's from offset from on; -1 for none.
long long firstDifference(unsigned long long from, const void* data, size_t size);

}  // namespace support

#endif  // FLUVIAFS_TESTS_SUPPORT_PATTERN_H_
