#ifndef FLUVIAFS_TESTS_SUPPORT_SESSIONPROBE_H_
#define FLUVIAFS_TESTS_SUPPORT_SESSIONPROBE_H_

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>

#include "tests/support/FaultServer.h"
#include "tests/support/HttpProbes.h"
#include "webs/MethodRequest.h"

namespace support {

// The result of a stopped transfer: libcurl's "aborted by callback".
constexpr int kAborted = 42;

// A session with its receiver; a transfer can run on a thread of its own.
struct SessionProbe {
  explicit SessionProbe(int featureFlag = -1);
  // Stops the running transfer.
  ~SessionProbe();
  // One transfer on this thread, of [start, end] or, with an end of 0, up to the end of the
  // resource. Returns its result.
  int get(const std::string& url, long long start = 0, long long end = 0);
  // One transfer on a thread of its own; join() waits for its end and returns its result.
  void start(const std::string& url);
  int join();

  CollectingRequestor receiver;
  webs::MethodRequest session;

 private:
  std::thread runner;
  std::atomic<int> result{0};
};

// Checks that a transfer of "/s" that was silent for a while after count bytes of its body (-1: of
// its response) is stopped at once: libcurl alone checks once a second. Tries three times, since a
// busy machine may delay any stop.
testing::AssertionResult stopsAtOnce(FaultServer* server, long long count);

}  // namespace support

#endif  // FLUVIAFS_TESTS_SUPPORT_SESSIONPROBE_H_
