#ifndef FLUVIAFS_TESTS_UNIT_UTIL_RECORDEDTASKS_H_
#define FLUVIAFS_TESTS_UNIT_UTIL_RECORDEDTASKS_H_

#include <gtest/gtest.h>

#include <mutex>
#include <vector>

#include "tests/support/TestFiles.h"
#include "util/TaskQueue.h"

// Tasks that record their calls.
class RecordedTasks : public testing::Test {
 protected:
  struct Call {
    int* arg;
    util::TEngineEvent_E event;
    bool operator==(const Call& call) const { return arg == call.arg && event == call.event; }
  };

  RecordedTasks() {
    calls.clear();
    support::makeFirstThread();
  }

  static void record(void* arg, util::TEngineEvent_E event) {
    std::lock_guard<std::mutex> guard(callsLock);
    calls.push_back({static_cast<int*>(arg), event});
  }
  static size_t callCount() {
    std::lock_guard<std::mutex> guard(callsLock);
    return calls.size();
  }

  static inline std::mutex callsLock;
  static inline std::vector<Call> calls;  // in order
  int a = 0;
  int b = 0;
  int sender = 0;
  int other = 0;
};

#endif  // FLUVIAFS_TESTS_UNIT_UTIL_RECORDEDTASKS_H_
