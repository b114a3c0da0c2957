#ifndef FLUVIAFS_WEBS_WALLCLOCK_H_
#define FLUVIAFS_WEBS_WALLCLOCK_H_

#include <sys/time.h>

#include <cstdint>

namespace webs {

// Wall-clock time in microseconds, computed in 64 bits and truncated to 32. It wraps every 71
// minutes, so only differences are meaningful.
inline unsigned int wallClockMicroseconds(const struct timeval& time) {
  const int64_t micros = static_cast<int64_t>(time.tv_sec) * 1000000 + time.tv_usec;
  return static_cast<unsigned int>(static_cast<uint64_t>(micros) & 0xFFFFFFFFU);
}

inline struct timeval wallClock() {
  struct timeval now;
  gettimeofday(&now, nullptr);
  return now;
}

// Microseconds from one stamp to a later one, as a signed 32-bit number: correct up to 35 minutes,
// negative if the clock was set back.
inline int microsecondsBetween(unsigned int earlier, unsigned int later) {
  return static_cast<int>(later - earlier);
}

}  // namespace webs

#endif  // FLUVIAFS_WEBS_WALLCLOCK_H_
