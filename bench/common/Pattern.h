#ifndef FLUVIAFS_BENCH_COMMON_PATTERN_H_
#define FLUVIAFS_BENCH_COMMON_PATTERN_H_

#include <cstddef>

namespace bench {

// The bytes of a served file are a function of their offset, so that every driver can check every
// byte cheaply: a page of 4096 bytes repeats, and each repetition is changed by its number. A block
// at a wrong offset is always noticed.
//
// Threads: any; nothing changes after the first use.

// Writes bytes [from, from + size).
void fillPattern(long long from, char* data, size_t size);
// Returns the index of the first byte of data that differs from [from, from + size); -1 if none
// does.
long long firstDifference(long long from, const char* data, size_t size);

}  // namespace bench

#endif  // FLUVIAFS_BENCH_COMMON_PATTERN_H_
