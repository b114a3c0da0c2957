#ifndef FLUVIAFS_UTIL_RESTARTS_H_
#define FLUVIAFS_UTIL_RESTARTS_H_

#include "util/TaskQueue.h"

namespace util {

// State of a buffer queue that outlives a connection.
//
// Threads: none of its own; the queue's feedLock guards it.
struct Restarts {
  static constexpr long long kNoBlock = -1;

  // The version that the worker starts next.
  int noted = 0;
  // Offset of the block that was last streamed again because its connection had ended early. A
  // restart for another reason resets it.
  long long refilled = kNoBlock;
  // Connections in a row that ended without storing a byte.
  int emptyEnds = 0;
  // Preallocated node for the next restart task.
  PreparedTask next;
};

}  // namespace util

#endif  // FLUVIAFS_UTIL_RESTARTS_H_
