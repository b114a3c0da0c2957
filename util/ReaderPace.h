#ifndef FLUVIAFS_UTIL_READERPACE_H_
#define FLUVIAFS_UTIL_READERPACE_H_

namespace util {

// Detects a reader that reads as fast as the resource arrives.
//
// Such a reader waits after nearly every chunk, and each wait costs it and the transfer more than
// copying the chunk. It is better to batch its wake-ups. A reader that seeked or waited long is
// woken at once.
//
// Threads: none of its own; the lock that guards the reading guards it.
class ReaderPace {
 public:
  // A read begins at that offset; anywhere but at the end of the previous read is a seek.
  void readBegins(long long offset) {
    if (offset != readEnd_) {
      steadyFrom_ = offset;
      waitWasShort_ = false;
    }
  }
  void readEnded(long long offset) { readEnd_ = offset; }
  // A wait for bytes has ended.
  void waited(bool shortly) { waitWasShort_ = shortly; }
  // True if the reader, now at offset, has read sequentially for that many bytes and its last wait
  // was short.
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
