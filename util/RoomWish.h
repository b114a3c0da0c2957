#ifndef FLUVIAFS_UTIL_ROOMWISH_H_
#define FLUVIAFS_UTIL_ROOMWISH_H_

namespace util {

// What the transfer of a buffer queue waits for while no block is free.
//
// Threads: none of its own; the queue's feedLock guards it.
struct RoomWish {
  // True if a reader has left a block and a reader that continues at position is near the write
  // head.
  bool isMet(long long position) const { return waits && steps > 0 && position >= resumeAt; }

  bool waits = false;
  // A thread has woken the transfer since; the transfer has not had the lock yet.
  bool woken = false;
  // Blocks that readers have left since.
  int steps = 0;
  // A reader before this offset has so much buffered ahead that the transfer need not be woken yet.
  long long resumeAt = 0;
};

}  // namespace util

#endif  // FLUVIAFS_UTIL_ROOMWISH_H_
