#ifndef FLUVIAFS_BENCH_COMMON_CONNECTIONS_H_
#define FLUVIAFS_BENCH_COMMON_CONNECTIONS_H_

#include <vector>

#include "bench/common/Statistics.h"

namespace bench {

// The TCP connections of this process, whoever in it has opened them, as the kernel sees them.
//
// Threads: one.
class Connections {
 public:
  // For how many milliseconds nothing has come on the open connection that was silent longest; -1
  // where there is none. New connections are noticed once a second.
  long long longestSilence(Clock::time_point now);

 private:
  void find();

  std::vector<int> sockets;  // not owned
  Clock::time_point nextFind;
};

}  // namespace bench

#endif  // FLUVIAFS_BENCH_COMMON_CONNECTIONS_H_
