#ifndef FLUVIAFS_UTIL_RESTARTS_H_
#define FLUVIAFS_UTIL_RESTARTS_H_

#include "util/TaskQueue.h"

namespace util {

// What a buffer queue remembers from one connection to the next.
//
// Threads: none of its own; the queue's feedLock guards it.
struct Restarts {
  static constexpr long long kNoBlock = -1;

  // The version that the worker is to start.
  int noted = 0;
  // Beginning of the block that was to be streamed again last, because its connection had ended
  // early. A restart for anything else forgets it.
  long long refilled = kNoBlock;
  // Connections in a row that ended without storing a byte.
  int emptyEnds = 0;
  // Room for the next restart task.
  PreparedTask next;
};

}  // namespace util

#endif  // FLUVIAFS_UTIL_RESTARTS_H_
