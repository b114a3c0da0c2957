#ifndef FLUVIAFS_TESTS_ORDEAL_STRESS_WORLD_H_
#define FLUVIAFS_TESTS_ORDEAL_STRESS_WORLD_H_

#include <atomic>
#include <memory>
#include <mutex>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "tests/ordeal/stress/Tally.h"
#include "tests/support/FaultServer.h"
#include "tests/support/HttpProbes.h"
#include "tests/support/SlowLink.h"
#include "tests/support/TestFiles.h"

namespace stress {

// Counts breaks, so that an operation knows whether one overlapped it.
class Disturbances {
 public:
  void begin() { ++begun; }
  void end() { ++ended; }
  // Called before an operation...
  int mark() const { return ended; }
  // ...and after it: false if no break overlapped it.
  bool since(int mark) const { return begun != mark; }

 private:
  std::atomic<int> begun{0};
  std::atomic<int> ended{0};
};

// One resource and its possible results.
struct Target {
  std::string url;
  std::string kind;  // in words
  long long size = 0;
  unsigned long long base = 0;  // byte 0 is the pattern's at base
  bool http = true;
  bool empty = false;      // no file behind the handle: everything fails with -4
  bool sized = true;       // the size is known from the first byte on
  bool seekable = true;    // else only within the span of streams that cannot seek
  bool stalls = false;     // falls silent: waiting calls must be aborted
  bool beforeAny = false;  // silent before the first byte: opened once at a time
  std::set<int> failures;  // codes of reads that may fail without a break; empty: none may

  std::atomic<int> handles{0};
  Disturbances disturbances;

  bool mortal() const { return !failures.empty(); }
};

// The servers, files and resources of a round, drawn from a seed.
//
// Threads:   draws on one thread; the targets' atomics and fail() from any.
// Ownership: owns servers, files and targets; its destructor stops the servers.
class World {
 public:
  World(unsigned int seed, Tally* tally);
  ~World();
  World(const World&) = delete;
  World& operator=(const World&) = delete;

  std::vector<std::unique_ptr<Target>> targets;
  int bufferSize;  // of every open, in bytes

  // Records an error; the first one stays.
  void fail(const std::string& what);
  bool failed() const { return wrong; }
  std::string failure() const;
  // Waits until the servers have no connection. Returns false after seconds.
  bool waitUntilIdle(int seconds) const;

 private:
  Target* add(const std::string& kind, long long size);
  void serve(Target* target, support::Behaviour behaviour, bool fault);
  std::string throughLink(const std::string& url) const;
  long long someSize(long long most);
  void addLocal();
  void addSound();
  void addBroken();
  void addUnseekable();
  void addMortal();
  Target* addFailing(const std::string& kind, long long size, int code = 0);
  void addStatus();
  void addStatusLater(long long size, long long some);
  void addStalling();
  void lie();

  Tally* const tally;
  std::mt19937 random;
  std::unique_ptr<support::TemporaryFolder> folder;
  std::unique_ptr<support::FaultServer> server;
  std::unique_ptr<support::SlowLink> link;  // before the server, for some resources; may be null
  std::atomic<bool> wrong{false};
  mutable std::mutex lock;
  std::string first;
};

// Makes every resource of later worlds send a wrong byte, to test that it is found.
void plantWrongByte(bool planted);

}  // namespace stress

#endif  // FLUVIAFS_TESTS_ORDEAL_STRESS_WORLD_H_
