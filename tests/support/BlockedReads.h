#ifndef FLUVIAFS_TESTS_SUPPORT_BLOCKEDREADS_H_
#define FLUVIAFS_TESTS_SUPPORT_BLOCKEDREADS_H_

#include <atomic>
#include <string>
#include <thread>

#include "tests/support/CapturedStderr.h"
#include "tests/support/TestFiles.h"

namespace support {

// The position of the handle of openBlocked(), in bytes.
constexpr long long kBlockedOffset = 2999000;

// Returns a handle, with a buffer of two blocks, on a new file of 3000000 bytes of the pattern. Its
// next read at its position waits for ever: its stream would have to restart there, and the file
// was removed. Another handle of that path shares the resource. The caller closes the handle.
int openBlocked(const TemporaryFolder& folder, const std::string& name);

// Waits until the first read of such a handle waits. log must have been created before it, at level
// 0 or above.
bool isBlocked(const CapturedStderr& log);

// Waits until a read of one byte of the handle has begun. steps must have been created before it,
// at level 1 or above.
bool hasBegun(const CapturedStderr& steps, int handle);

// Reads one byte of a handle on a thread of its own, which the destructor joins.
class BackgroundRead {
 public:
  explicit BackgroundRead(int handle);
  ~BackgroundRead() { thread.join(); }
  BackgroundRead(const BackgroundRead&) = delete;
  BackgroundRead& operator=(const BackgroundRead&) = delete;

  // Waits for the end of the read.
  bool hasEnded() const;

  std::atomic<bool> ended{false};
  std::atomic<int> result{1};  // the code of the read, 1 until then

 private:
  std::thread thread;
};

}  // namespace support

#endif  // FLUVIAFS_TESTS_SUPPORT_BLOCKEDREADS_H_
