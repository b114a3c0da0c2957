#ifndef FLUVIAFS_UTIL_READERWISH_H_
#define FLUVIAFS_UTIL_READERWISH_H_

namespace util {

// What the reader of a buffer queue waits for, while it waits.
//
// It stands from the moment in which the reader begins to wait until it has the lock again: only
// the reader takes it back, whatever else happens to the flag it raised.
//
// Threads: none of its own; the queue's feedLock guards it.
struct ReaderWish {
  enum Kind {
    kNone,   // nobody waits
    kBlock,  // a block that is not in the span yet
    kRest    // the rest of the block that is being written
  };

  Kind kind = kNone;
  // Another connection may have to bring it: the reader has raised needFeed.
  bool asks = false;
  // Somebody has woken the reader since; it has not had the lock yet.
  bool woken = false;
  // Offset up to which bytes must be buffered before a wake-up is of use.
  long long until = 0;
  // Chunks stored since that brought the reader no nearer to its bytes, nor announced a restart.
  int unserved = 0;

  bool stands() const { return kind != kNone; }
};

}  // namespace util

#endif  // FLUVIAFS_UTIL_READERWISH_H_
