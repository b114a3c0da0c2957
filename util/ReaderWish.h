#ifndef FLUVIAFS_UTIL_READERWISH_H_
#define FLUVIAFS_UTIL_READERWISH_H_

namespace util {

// What the reader of a buffer queue waits for.
//
// It is set from the moment the reader begins to wait until the reader has the lock again. Only the
// reader clears it, even if another thread clears needFeed.
//
// Threads: none of its own; the queue's feedLock guards it.
struct ReaderWish {
  enum Kind {
    kNone,   // no reader waits
    kBlock,  // a block that is not in the span yet
    kRest    // the rest of the block that is being written
  };

  Kind kind = kNone;
  // The reader has set needFeed: another connection may have to deliver the data.
  bool asks = false;
  // A thread has woken the reader since; the reader has not had the lock yet.
  bool woken = false;
  // Do not wake the reader until bytes up to this offset are buffered.
  long long until = 0;
  // Chunks stored since that neither brought the reader closer to its bytes nor announced a
  // restart.
  int unserved = 0;

  bool stands() const { return kind != kNone; }
};

}  // namespace util

#endif  // FLUVIAFS_UTIL_READERWISH_H_
