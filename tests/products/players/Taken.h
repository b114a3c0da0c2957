#ifndef FLUVIAFS_TESTS_PLAYERS_TAKEN_H_
#define FLUVIAFS_TESTS_PLAYERS_TAKEN_H_

#include <gst/gst.h>

#include <atomic>

#include "Pipeline.h"

// Counts what a sink is given, and compares it with the pattern of test resources.
struct Taken {
  std::atomic<long long> bytes{0};
  std::atomic<long long> wrong{0};

  // From now on, at the pipeline's element "sink".
  void watch(const Pipeline& pipeline);
};

// Threads of the element that wait for the next reader, at most.
constexpr int kThreadsKept = 3;

#endif  // FLUVIAFS_TESTS_PLAYERS_TAKEN_H_
