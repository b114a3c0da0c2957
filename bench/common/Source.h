#ifndef FLUVIAFS_BENCH_COMMON_SOURCE_H_
#define FLUVIAFS_BENCH_COMMON_SOURCE_H_

#include <memory>
#include <string>

#include "bench/common/Options.h"

namespace bench {

// A resource as one peer reads it.
//
// Threads:   one, but abort() from any, and close() too where closesWhileReading() says so.
// Ownership: close() before destruction.
class Source {
 public:
  virtual ~Source() = default;
  // url is that of the options or a variant of it. False when it cannot be opened.
  virtual bool open(const Options& options, const std::string& url) = 0;
  // Waits for size bytes. Fewer only at the end; negative when it fails or was aborted.
  virtual long long read(char* buffer, size_t size) = 0;
  // Where the next read begins, at most at the end. May wait. False when it fails.
  virtual bool seek(long long offset) = 0;
  // Makes a read that waits return, soon.
  virtual void abort() = 0;
  virtual void close() = 0;
  virtual bool closesWhileReading() const { return false; }
  // Bytes held ahead of the next read; -1 where the peer does not tell.
  virtual long long buffered() { return -1; }
  // False for one that stands for no peer: what it reads is nothing.
  virtual bool givesBytes() const { return true; }
};

// Runs the workload that the command line asks for and prints its figures; main() of every driver.
// make gives a source that is not open, or null for a mode it does not know. Returns the exit code.
using SourceMaker = std::unique_ptr<Source> (*)(const Options&);
int runDriver(int argc, char** argv, SourceMaker make);

}  // namespace bench

#endif  // FLUVIAFS_BENCH_COMMON_SOURCE_H_
