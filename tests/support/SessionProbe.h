#ifndef FLUVIAFS_TESTS_SUPPORT_SESSIONPROBE_H_
#define FLUVIAFS_TESTS_SUPPORT_SESSIONPROBE_H_

#include <atomic>
#include <string>
#include <thread>

#include "tests/support/FaultServer.h"
#include "tests/support/HttpProbes.h"
#include "webs/MethodRequest.h"

namespace support {

// The result of a transfer that was stopped: libcurl's "aborted by callback".
constexpr int kAborted = 42;

// A session with its receiver; a transfer can run on a thread of its own.
struct SessionProbe {
  explicit SessionProbe(int featureFlag = -1);
  // Stops the transfer that runs.
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

// Stops transfers of "/s" from server that have been silent for a while: libcurl then looks around
// once a second. Returns the shortest stop in seconds: a busy machine may make any of them long.
double shortestStop(FaultServer* server);

}  // namespace support

#endif  // FLUVIAFS_TESTS_SUPPORT_SESSIONPROBE_H_
