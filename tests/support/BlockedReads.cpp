#include "tests/support/BlockedReads.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include "api/fluviafs.h"
#include "tests/support/Watchdog.h"

namespace support {

int openBlocked(const TemporaryFolder& folder, const std::string& name) {
  const std::string path = folder.makePattern(name, 3000000);
  int handle = 0;
  char byte = 0;
  unsigned int got = 0;
  long long now = 0;
  EXPECT_EQ(x_fluvia_file_open_x(path.c_str(), &handle, 2 * FVFR_BUFFER_BLOCK), FVFR_OK);
  EXPECT_EQ(x_fluvia_file_read(handle, &byte, 1, &got), FVFR_OK);
  EXPECT_EQ(unlink(path.c_str()), 0);
  EXPECT_EQ(x_fluvia_file_seek(handle, kBlockedOffset, &now), FVFR_OK);
  return handle;
}

bool isBlocked(const CapturedStderr& log) {
  return eventually([&] { return log.has("startStreaming: Open file fail"); });
}

bool hasBegun(const CapturedStderr& steps, int handle) {
  return eventually([&] {
    return steps.has("x_fluvia_file_read: befor x_fluvia_file_read(handle: " +
                     std::to_string(handle) + ", size: 1)");
  });
}

BackgroundRead::BackgroundRead(int handle)
    : thread([this, handle] {
        char byte = 0;
        unsigned int got = 0;
        result = x_fluvia_file_read(handle, &byte, 1, &got);
        ended = true;
      }) {}

bool BackgroundRead::hasEnded() const {
  return eventually([this] { return ended.load(); });
}

}  // namespace support
