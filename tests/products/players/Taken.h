#ifndef FLUVIAFS_TESTS_PLAYERS_TAKEN_H_
#define FLUVIAFS_TESTS_PLAYERS_TAKEN_H_

#include <gst/gst.h>

#include <atomic>

#include "Pipeline.h"

// Counts the bytes that a sink receives, and compares them with the pattern of test resources.
struct Taken {
  std::atomic<long long> bytes{0};
  std::atomic<long long> wrong{0};

  // Begins at the pipeline's element "sink".
  void watch(const Pipeline& pipeline);
};

// Limit of the element's idle threads.
constexpr int kThreadsKept = 3;

#endif  // FLUVIAFS_TESTS_PLAYERS_TAKEN_H_
