#ifndef FLUVIAFS_UTIL_ROOMWISH_H_
#define FLUVIAFS_UTIL_ROOMWISH_H_

namespace util {

// What the transfer of a buffer queue waits for, while no block is free.
//
// Threads: none of its own; the queue's feedLock guards it.
struct RoomWish {
  // The reader has left as many blocks as are wanted.
  bool isMet() const { return waits && steps >= wanted; }

  bool waits = false;
  // Somebody has woken the transfer since; it has not had the lock yet.
  bool woken = false;
  // Blocks that the reader must leave before a wake-up is of use, and those it has left since.
  int wanted = 0;
  int steps = 0;
};

}  // namespace util

#endif  // FLUVIAFS_UTIL_ROOMWISH_H_
