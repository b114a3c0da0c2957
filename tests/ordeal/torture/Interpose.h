#ifndef FLUVIAFS_TESTS_TORTURE_INTERPOSE_H_
#define FLUVIAFS_TESTS_TORTURE_INTERPOSE_H_

#include <string>

// Functions of the system that the program which contains this defines itself, so that everything
// in the process calls them here first: the library, libcurl, the crypto library, libstdc++. Each
// can be told to fail; the clock can be told to run faster.
//
// Threads: any. One thing is tortured at a time.
namespace torture {

// What can be told to fail.
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

// Name of a point as the command line has it, and back; kNone for no such name.
const char* nameOf(Point point);
Point pointOf(const std::string& name);

// From now on the calls of that kind are counted from 1; those from first to first + count - 1
// fail. count 0: every one from first on. first 0: none, they are only counted.
void arm(Point point, long first, long count);
// Counts and fails nothing any more. Returns how many calls were counted since arm().
long disarm();
// How many calls have failed since arm().
long failures();

// Calls of this thread are neither counted nor failed while one of these lives: what a test
// allocates for itself.
class Spared {
 public:
  Spared();
  ~Spared();
  Spared(const Spared&) = delete;
  Spared& operator=(const Spared&) = delete;
};

// Within a Spared: calls of this thread count again while one of these lives.
class Counted {
 public:
  Counted();
  ~Counted();
  Counted(const Counted&) = delete;
  Counted& operator=(const Counted&) = delete;

 private:
  int before_;
};

// Has all clocks, poll and timed waits run that many times as fast from now on; 1 is real time.
// Descriptors are still waited for as long as it takes, only time-outs are shorter.
void setClockSpeed(int factor);

// "torture.test" is a host name that resolves to 127.0.0.1, with a resolver thread as every name.
extern const char kHostName[];

}  // namespace torture

#endif  // FLUVIAFS_TESTS_TORTURE_INTERPOSE_H_
