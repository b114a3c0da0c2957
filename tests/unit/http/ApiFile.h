#ifndef FLUVIAFS_TESTS_HTTP_APIFILE_H_
#define FLUVIAFS_TESTS_HTTP_APIFILE_H_

#include <gtest/gtest.h>

#include <string>

#include "api/fluviafs.h"
#include "tests/support/IsPattern.h"
#include "tests/support/Pattern.h"

// One handle of the C interface for a test.
class ApiFile {
 public:
  explicit ApiFile(const std::string& url, int bufferSize = FVFR_DEFAULT_BUFFER) {
    EXPECT_EQ(x_fluvia_file_open_x(url.c_str(), &handle, bufferSize), FVFR_OK);
  }
  ~ApiFile() { close(); }
  ApiFile(const ApiFile&) = delete;
  ApiFile& operator=(const ApiFile&) = delete;

  void close() {
    if (handle > 0) {
      EXPECT_EQ(x_fluvia_file_close(handle), FVFR_OK);
    }
    handle = 0;
  }

  // Reads at most size bytes; the result code is in last.
  std::string read(unsigned int size) {
    std::string bytes(size, '\0');
    unsigned int got = 0;
    last = x_fluvia_file_read(handle, &bytes[0], size, &got);
    bytes.resize(got);
    return bytes;
  }

  // Reads in pieces to the end and compares with the pattern from offset on.
  ::testing::AssertionResult restIsPattern(long long offset, long long size, unsigned int piece) {
    for (;;) {
      const std::string bytes = read(piece);
      const long long at = support::firstDifference(static_cast<unsigned long long>(offset),
                                                    bytes.data(), bytes.size());
      if (at >= 0) {
        return ::testing::AssertionFailure() << "byte " << offset + at << " is wrong";
      }
      offset += static_cast<long long>(bytes.size());
      if (last == FVFR_END_OF_FILE) break;
      if (last != FVFR_OK) {
        return ::testing::AssertionFailure() << "read gave " << last << " at " << offset;
      }
    }
    if (offset == size) return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "ended at " << offset << " of " << size;
  }

  // Reads size bytes at the handle's position, which is offset.
  ::testing::AssertionResult readsPattern(long long offset, unsigned int size) {
    const std::string bytes = read(size);
    if (last != FVFR_OK) {
      return ::testing::AssertionFailure()
             << "read at " << offset << " gave " << last << " and " << bytes.size() << " bytes";
    }
    return support::isPattern(bytes, offset, size);
  }
  // The same after a seek.
  ::testing::AssertionResult readsPatternAt(long long offset, unsigned int size) {
    const int result = seek(offset);
    if (result != FVFR_OK) {
      return ::testing::AssertionFailure() << "seek to " << offset << " gave " << result;
    }
    return readsPattern(offset, size);
  }

  int seek(long long offset) {
    long long now = -1;
    return x_fluvia_file_seek(handle, offset, &now);
  }
  long long size() { return x_fluvia_file_size(handle); }
  int status() { return x_fluvia_file_http_get_download_status(handle); }

  int handle = 0;
  int last = 0;
};

#endif  // FLUVIAFS_TESTS_HTTP_APIFILE_H_
