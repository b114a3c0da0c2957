#ifndef FLUVIAFS_UTIL_CLOCK_H_
#define FLUVIAFS_UTIL_CLOCK_H_

#include <time.h>

namespace util {

// Milliseconds of the monotonic clock; from any thread.
inline long long monotonicMs() {
  struct timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<long long>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

}  // namespace util

#endif  // FLUVIAFS_UTIL_CLOCK_H_
