#ifndef FLUVIAFS_UTIL_ROOMWISH_H_
#define FLUVIAFS_UTIL_ROOMWISH_H_

namespace util {

// What the transfer of a buffer queue waits for, while no block is free.
//
// Threads: none of its own; the queue's feedLock guards it.
struct RoomWish {
  // A reader has left a block, and one that goes on at position is near enough to the write head.
  bool isMet(long long position) const { return waits && steps > 0 && position >= resumeAt; }

  bool waits = false;
  // Somebody has woken the transfer since; it has not had the lock yet.
  bool woken = false;
  // Blocks that readers have left since.
  int steps = 0;
  // Offset before which a reader has so much ahead of it that a wake-up can wait.
  long long resumeAt = 0;
};

}  // namespace util

#endif  // FLUVIAFS_UTIL_ROOMWISH_H_
