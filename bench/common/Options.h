#ifndef FLUVIAFS_BENCH_COMMON_OPTIONS_H_
#define FLUVIAFS_BENCH_COMMON_OPTIONS_H_

#include <string>

namespace bench {

// The options of a driver. Every driver takes the same command line; --help prints it.
struct Options {
  std::string workload = "sequential";
  std::string mode;           // a driver's own variants
  std::string url;            // an absolute path, http:// or https://
  std::string ca;             // a file of PEM certificates; empty: certificates are not verified
  std::string call;           // "silent": close, abort or seek
  long long size = 0;         // bytes of the resource
  long long step = 0;         // "readers": bytes between meetings; 0: they run free
  int read = 32768;           // bytes of a read
  int count = 1000;           // operations
  int pause = 0;              // "backward": milliseconds before each
  int buffer = 0x200000;      // bytes
  long long rate = 25000000;  // "play": bits per second
  int begin = 5;              // "play": seconds before the counted ones
  int seconds = 60;           // "play": counted seconds
  int readers = 1;
  bool distinct = false;  // every reader has a URL of its own
  unsigned int seed = 1;
};

// Reads the command line. Ends the process with 0 after --help, with 2 if it is wrong.
Options parseOptions(int argc, char** argv);

}  // namespace bench

#endif  // FLUVIAFS_BENCH_COMMON_OPTIONS_H_
