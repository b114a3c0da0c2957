#ifndef FLUVIAFS_TESTS_SUPPORT_ISPATTERN_H_
#define FLUVIAFS_TESTS_SUPPORT_ISPATTERN_H_

#include <gtest/gtest.h>

#include <string>

#include "tests/support/Pattern.h"

namespace support {

// True if the bytes are count bytes of the pattern from offset from on.
inline ::testing::AssertionResult isPattern(const std::string& bytes, long long from,
                                            size_t count) {
  if (bytes.size() != count) {
    return ::testing::AssertionFailure()
           << bytes.size() << " bytes from " << from << ", not " << count;
  }
  const long long at =
      firstDifference(static_cast<unsigned long long>(from), bytes.data(), bytes.size());
  if (at < 0) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << "byte " << at << " from " << from << " is wrong";
}

}  // namespace support

#endif  // FLUVIAFS_TESTS_SUPPORT_ISPATTERN_H_
