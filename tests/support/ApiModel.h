#ifndef FLUVIAFS_TESTS_SUPPORT_APIMODEL_H_
#define FLUVIAFS_TESTS_SUPPORT_APIMODEL_H_

#include <memory>
#include <ostream>
#include <random>
#include <string>
#include <vector>

#include "tests/support/TestFiles.h"

namespace support {

// A file or URL with the pattern's bytes from base on.
struct Resource {
  std::string path;
  long long size;
  unsigned long long base;
};

// The model's state of one open handle.
struct Open {
  int handle;
  const Resource* resource;
  long long offset;
};

// Makes random calls of the C interface and checks each against plain arrays of the same bytes.
class Caller {
 public:
  // onlyOne: no other caller makes requests. Request ids are reused at once and are process-wide,
  // so a late abort would reach another caller's request.
  Caller(const std::vector<Resource>& files, int bufferSize, unsigned int seed, bool onlyOne);
  ~Caller();
  Caller(const Caller&) = delete;
  Caller& operator=(const Caller&) = delete;

  // Makes one random call. Returns an empty string, or the error.
  std::string step();
  // Returns how many read bytes have been compared so far.
  long long bytesCompared() const { return compared; }

 private:
  std::string open();
  std::string close(size_t which);
  std::string size(const Open& file);
  std::string buffered(const Open& file);
  std::string seek(Open& file);
  std::string read(Open& file);
  std::string async(Open& file, bool abort);
  std::string checkCompletion(Open& file, const Completions::Call& call, unsigned int wanted,
                              bool mayBeCancelled);
  unsigned int someSize();
  static unsigned int expected(const Open& file, unsigned int asked);
  std::string bytesFault(const Open& file, unsigned int count);

  const std::vector<Resource>& resources;
  const int buffer;
  const bool alone;
  std::mt19937 random;
  std::vector<char> bytes;
  long long compared = 0;
  std::vector<Open> opened;
  std::vector<std::unique_ptr<Completions>> kept;  // the second call of an abort may come late
};

// Callers that run at the same time.
struct CallersPlan {
  int bufferSize;  // bytes, of every open
  int threads;     // one caller each
  int calls;       // of each thread, unless FLUVIA_MODEL_FACTOR is set
  const char* name;
};

inline void PrintTo(const CallersPlan& plan, std::ostream* out) { *out << plan.name; }

// The results of the callers.
struct CallersResult {
  std::string wrong;  // empty, or the errors, one line for each caller
  int calls = 0;      // of all callers
  long long bytesCompared = 0;
};

// Runs a plan. Ends the process if no call returns for a minute.
CallersResult runCallers(const CallersPlan& plan, const std::vector<Resource>& resources,
                         unsigned int seed);

}  // namespace support

#endif  // FLUVIAFS_TESTS_SUPPORT_APIMODEL_H_
