#ifndef FLUVIAFS_UTIL_READERPACE_H_
#define FLUVIAFS_UTIL_READERPACE_H_

namespace util {

// Tells whether a reader goes through a resource as fast as it arrives.
//
// Such a reader waits after nearly every chunk, and each wait costs it and the transfer more than
// the copy of the chunk: it is better woken for many chunks at once. One that has jumped, or whose
// last wait took a while, is to have its bytes as soon as they come.
//
// Threads: none of its own; the lock that guards the reading guards it.
class ReaderPace {
 public:
  // A read begins at that offset; anywhere but at the end of the one before it is a jump.
  void readBegins(long long offset) {
    if (offset != readEnd_) {
      steadyFrom_ = offset;
      waitWasShort_ = false;
    }
  }
  void readEnded(long long offset) { readEnd_ = offset; }
  // A wait for bytes has ended.
  void waited(bool shortly) { waitWasShort_ = shortly; }
  // Whether the reader, now at offset, has gone on steadily for that many bytes and waited but
  // shortly the last time.
  bool keepsUp(long long offset, long long stretch) const {
    return waitWasShort_ && offset - steadyFrom_ >= stretch;
  }

 private:
  long long steadyFrom_ = 0;
  long long readEnd_ = 0;
  bool waitWasShort_ = false;
};

}  // namespace util

#endif  // FLUVIAFS_UTIL_READERPACE_H_
