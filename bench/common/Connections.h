#ifndef FLUVIAFS_BENCH_COMMON_CONNECTIONS_H_
#define FLUVIAFS_BENCH_COMMON_CONNECTIONS_H_

#include <vector>

#include "bench/common/Statistics.h"

namespace bench {

// The kernel's view of all TCP connections of this process.
//
// Threads: one.
class Connections {
 public:
  // Returns for how many milliseconds the open connection that was silent longest has received
  // nothing; -1 without a connection. New connections are noticed once a second.
  long long longestSilence(Clock::time_point now);

 private:
  void find();

  std::vector<int> sockets;  // not owned
  Clock::time_point nextFind;
};

}  // namespace bench

#endif  // FLUVIAFS_BENCH_COMMON_CONNECTIONS_H_
