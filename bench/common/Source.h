#ifndef FLUVIAFS_BENCH_COMMON_SOURCE_H_
#define FLUVIAFS_BENCH_COMMON_SOURCE_H_

#include <memory>
#include <string>

#include "bench/common/Options.h"

namespace bench {

// A resource as one peer reads it.
//
// Threads:   one; abort() from any, and close() too if closesWhileReading().
// Ownership: close() before destruction.
class Source {
 public:
  virtual ~Source() = default;
  // url is that of the options or a variant of it. Returns false if it cannot be opened.
  virtual bool open(const Options& options, const std::string& url) = 0;
  // Waits for size bytes. Returns fewer only at the end, and a negative value if it fails or was
  // aborted.
  virtual long long read(char* buffer, size_t size) = 0;
  // Sets where the next read begins, at most at the end. May wait. Returns false if it fails.
  virtual bool seek(long long offset) = 0;
  // Makes a waiting read return within moments.
  virtual void abort() = 0;
  virtual void close() = 0;
  virtual bool closesWhileReading() const { return false; }
  // Returns the bytes buffered ahead of the next read; -1 if the peer does not report them.
  virtual long long buffered() { return -1; }
  // False for a source that is no peer: its reads deliver no bytes.
  virtual bool givesBytes() const { return true; }
};

// Runs the workload of the command line and prints its figures; main() of every driver. make
// returns a source that is not open, or null for an unknown mode. Returns the exit code.
using SourceMaker = std::unique_ptr<Source> (*)(const Options&);
int runDriver(int argc, char** argv, SourceMaker make);

}  // namespace bench

#endif  // FLUVIAFS_BENCH_COMMON_SOURCE_H_
