#ifndef FLUVIAFS_TESTS_UNIT_API_APICALLS_H_
#define FLUVIAFS_TESTS_UNIT_API_APICALLS_H_

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "api/fluviafs.h"
#include "tests/support/CapturedStderr.h"
#include "tests/support/TestFiles.h"

// Calls of the C interface, silenced or with their log lines.
class ApiCalls : public testing::Test {
 protected:
  using Lines = std::vector<std::string>;

  // Opens a handle on path with silenced log.
  int open(const std::string& path, int bufferSize = 0x200000) {
    const support::CapturedStderr quiet(-100);
    int handle = 0;
    EXPECT_EQ(x_fluvia_file_open_x(path.c_str(), &handle, bufferSize), 0);
    return handle;
  }
  void close(int handle) {
    const support::CapturedStderr quiet(-100);
    EXPECT_EQ(x_fluvia_file_close(handle), 0);
  }

  // The lines of one call at a level, of the functions whose names begin with x_fluvia.
  static Lines linesOf(int level, const std::function<void()>& call) {
    const support::CapturedStderr captured(level);
    call();
    Lines lines;
    for (const std::string& line : captured.messages()) {
      if (line.compare(0, 8, "x_fluvia") == 0) lines.push_back(line);
    }
    return lines;
  }

  support::TemporaryFolder folder;
};

#endif  // FLUVIAFS_TESTS_UNIT_API_APICALLS_H_
