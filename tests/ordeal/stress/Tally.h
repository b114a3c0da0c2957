#ifndef FLUVIAFS_TESTS_ORDEAL_STRESS_TALLY_H_
#define FLUVIAFS_TESTS_ORDEAL_STRESS_TALLY_H_

#include <atomic>
#include <string>

namespace stress {

// The counts of a run. Any thread.
struct Tally {
  std::atomic<long long> rounds{0};
  std::atomic<long long> operations{0};     // calls of the interface
  std::atomic<long long> reads{0};          // of them, blocking reads
  std::atomic<long long> asyncReads{0};     // and asynchronous ones
  std::atomic<long long> callbacks{0};      // completions received
  std::atomic<long long> breaks{0};         // aborts of blocking reads and probes
  std::atomic<long long> aborts{0};         // aborts of asynchronous reads
  std::atomic<long long> strangeCloses{0};  // closes by another thread or in a callback
  std::atomic<long long> bytes{0};          // compared
  std::atomic<long long> failures{0};       // calls that failed and may fail
  std::atomic<long long> connections{0};    // accepted by servers
  std::atomic<long long> faults{0};         // responses other than those of a good server

  std::string text() const {
    return std::to_string(rounds) + " rounds, " + std::to_string(operations) + " operations (" +
           std::to_string(reads) + " reads, " + std::to_string(asyncReads) +
           " asynchronous reads, " + std::to_string(callbacks) + " callbacks, " +
           std::to_string(breaks) + " breaks, " + std::to_string(aborts) + " aborts, " +
           std::to_string(strangeCloses) + " closes by others), " + std::to_string(bytes) +
           " bytes compared, " + std::to_string(failures) + " allowed failures, " +
           std::to_string(connections) + " connections, " + std::to_string(faults) + " faults";
  }
};

}  // namespace stress

#endif  // FLUVIAFS_TESTS_ORDEAL_STRESS_TALLY_H_
