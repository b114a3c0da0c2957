#ifndef FLUVIAFS_TESTS_TORTURE_INTERPOSE_H_
#define FLUVIAFS_TESTS_TORTURE_INTERPOSE_H_

#include <string>

// System functions that the program which contains this defines itself. Everything in the process
// calls them here first: the library, libcurl, the crypto library, libstdc++. Each can be made to
// fail; the clock can be made to run faster.
//
// Threads: any. One kind of call is tortured at a time.
namespace torture {

// The kinds of calls that can fail.
enum class Point {
  kNone,
  kAllocation,  // malloc, calloc, realloc, aligned_alloc, posix_memalign, operator new: no memory
  kThread,      // pthread_create: EAGAIN
  kSocket,      // socket, socketpair: EMFILE
  kConnect,     // connect: ENETUNREACH
  kOpen,        // open, openat, fopen: EMFILE
  kRead,        // read: EIO; recv of a network socket: ECONNRESET
  kSend,        // send to a network socket: ECONNRESET
  kResolve      // getaddrinfo: EAI_AGAIN
};

// Name of a point on the command line, and back; kNone for an unknown name.
const char* nameOf(Point point);
Point pointOf(const std::string& name);

// From now on the calls of that kind are counted from 1; those from first to first + count - 1
// fail. count 0: every one from first on. first 0: none fails, they are only counted.
void arm(Point point, long first, long count);
// Stops counting and failing. Returns how many calls were counted since arm().
long disarm();
// Returns how many calls have failed since arm().
long failures();

// During its life calls of this thread are neither counted nor failed: for the allocations of the
// test itself.
class Spared {
 public:
  Spared();
  ~Spared();
  Spared(const Spared&) = delete;
  Spared& operator=(const Spared&) = delete;
};

// Inside a Spared: during its life calls of this thread count again.
class Counted {
 public:
  Counted();
  ~Counted();
  Counted(const Counted&) = delete;
  Counted& operator=(const Counted&) = delete;

 private:
  int before_;
};

// Makes all clocks, poll and timed waits run that many times as fast from now on; 1 is real time.
// Only time-outs are shorter: a wait for a descriptor still lasts until it is ready.
void setClockSpeed(int factor);

// "torture.test" is a host name that resolves to 127.0.0.1, with a resolver thread as every name.
extern const char kHostName[];

}  // namespace torture

#endif  // FLUVIAFS_TESTS_TORTURE_INTERPOSE_H_
