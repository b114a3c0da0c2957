#ifndef FLUVIAFS_BENCH_COMMON_PATTERN_H_
#define FLUVIAFS_BENCH_COMMON_PATTERN_H_

#include <cstddef>

namespace bench {

// The bytes of a served file are a function of their offset, so that every driver checks every byte
// it was given, and cheaply: a page of 4096 bytes that repeats, each repetition changed by its own
// number. A block at a wrong offset is seen wherever it came from.
//
// Threads: any; nothing changes after the first use.

// Writes bytes [from, from + size).
void fillPattern(long long from, char* data, size_t size);
// Index of the first byte of data that is not that of [from, from + size); -1 when all are right.
long long firstDifference(long long from, const char* data, size_t size);

}  // namespace bench

#endif  // FLUVIAFS_BENCH_COMMON_PATTERN_H_
