#ifndef FLUVIAFS_BENCH_COMMON_READER_H_
#define FLUVIAFS_BENCH_COMMON_READER_H_

#include <memory>
#include <string>
#include <vector>

#include "bench/common/Source.h"
#include "bench/common/Statistics.h"

namespace bench {

// One reader of a resource: reads, checks every byte, takes times.
//
// Threads: one at a time.
class Reader {
 public:
  Reader(const Options& options, std::unique_ptr<Source> source);

  bool open(const std::string& url);
  // Reads [position, position + size), or up to the end. Returns false after an error, which it has
  // printed. Notes only the time of the read, with the seek before it if there was one.
  bool read(size_t size);
  // As read(), but its time is not one of the operations'.
  bool readAside(size_t size);
  // As read(), but compares the bytes only now and then: the comparison would be a large part of
  // the cost of a player.
  bool readLightly(size_t size);
  bool seek(long long offset);
  bool atEnd() const { return position >= options.size; }
  long long offset() const { return position; }
  long long bytes() const { return checked; }
  Source* source() { return peer.get(); }
  Histogram& operations() { return times; }

 private:
  bool check(long long got, size_t wanted, bool compares);

  const Options& options;
  std::unique_ptr<Source> peer;
  std::vector<char> buffer;
  Histogram times;
  Clock::duration seeking = {};
  long long position = 0;
  long long checked = 0;
  unsigned int lightly = 0;  // reads so far of which not all are compared
};

}  // namespace bench

#endif  // FLUVIAFS_BENCH_COMMON_READER_H_
