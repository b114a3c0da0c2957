#include <gtest/gtest.h>

#include <string>

#include "api/fluviafs.h"
#include "tests/support/CapturedStderr.h"
#include "tests/support/Pattern.h"
#include "tests/support/TestFiles.h"

namespace {

void ignore(int, void*, int, int) {}

TEST(FileApiTwins, WorkOnTheSameHandles) {
  support::TemporaryFolder folder;
  // One read of the feeding thread returns the whole file, so its buffered size does not change.
  constexpr int kSize = 10000;
  const std::string path = folder.makePattern("a", kSize);
  int handle = 0;
  ASSERT_EQ(c_fluvia_file_open(path.c_str(), &handle), FVFR_OK);
  std::string bytes(1000, '\0');
  unsigned int got = 0;
  ASSERT_EQ(c_fluvia_file_read(handle, &bytes[0], 1000, &got), FVFR_OK);
  EXPECT_EQ(got, 1000u);
  EXPECT_EQ(support::firstDifference(0, bytes.data(), got), -1);
  EXPECT_EQ(x_fluvia_file_offset(handle), 1000) << "moved by its twin";

  long long now = -1;
  ASSERT_EQ(c_fluvia_file_seek(handle, 5000, &now), FVFR_OK);
  EXPECT_EQ(now, 5000);
  ASSERT_EQ(x_fluvia_file_read(handle, &bytes[0], 10, &got), FVFR_OK);
  EXPECT_EQ(support::firstDifference(5000, bytes.data(), got), -1);
  EXPECT_EQ(c_fluvia_file_offset(handle), 5010);
  EXPECT_EQ(c_fluvia_file_size(handle), kSize);
  EXPECT_EQ(c_fluvia_file_bufferSize(handle), x_fluvia_file_bufferSize(handle));
  EXPECT_EQ(c_fluvia_file_bufferedSize(handle), kSize - 5010);
  EXPECT_EQ(x_fluvia_file_bufferedSize(handle), kSize - 5010);
  EXPECT_EQ(c_fluvia_file_volatile(handle), x_fluvia_file_volatile(handle));
  EXPECT_EQ(c_fluvia_file_close(handle), FVFR_OK);
  EXPECT_LT(x_fluvia_file_read(handle, &bytes[0], 10, &got), 0) << "closed by its twin";
}

TEST(FileApiTwins, RefuseWhatIsNoHandle) {
  char byte = 0;
  unsigned int got = 0;
  int request = 0;
  long long now = 0;
  constexpr int kNone = 77;
  EXPECT_EQ(c_fluvia_file_open_x(nullptr, &request, 0), x_fluvia_file_open_x(nullptr, &request, 0));
  EXPECT_EQ(c_fluvia_file_read(kNone, &byte, 1, &got), x_fluvia_file_read(kNone, &byte, 1, &got));
  EXPECT_EQ(c_fluvia_file_read_async(kNone, &byte, 1, ignore, nullptr, &request),
            x_fluvia_file_read_async(kNone, &byte, 1, ignore, nullptr, &request));
  EXPECT_EQ(c_fluvia_file_read_abort(kNone, 0), x_fluvia_file_read_abort(kNone, 0));
  EXPECT_EQ(c_fluvia_file_seek(kNone, 1, &now), x_fluvia_file_seek(kNone, 1, &now));
  EXPECT_EQ(c_fluvia_file_dump_buffer(nullptr, nullptr),
            x_fluvia_file_dump_buffer(nullptr, nullptr));
}

TEST(FileApiTwins, SetTheSameLogLevel) {
  const support::CapturedStderr captured(-4);
  c_fluvia_file_set_log_level(2);
  EXPECT_EQ(x_fluvia_file_get_log_level(), 2);
  c_fluvia_file_disable_log();
  const int disabled = x_fluvia_file_get_log_level();
  x_fluvia_file_set_log_level(2);
  x_fluvia_file_disable_log();
  EXPECT_EQ(disabled, x_fluvia_file_get_log_level());
  EXPECT_EQ(disabled, FVFR_LOG_DISABLED);
}

}  // namespace
