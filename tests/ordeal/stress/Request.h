#ifndef FLUVIAFS_TESTS_ORDEAL_STRESS_REQUEST_H_
#define FLUVIAFS_TESTS_ORDEAL_STRESS_REQUEST_H_

#include <atomic>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "tests/ordeal/stress/Held.h"

namespace stress {

// One asynchronous read, from its issue to its last callback.
//
// Threads: any. An abort and the counting of a callback exclude each other, so that an abort never
//          reaches the id's next owner.
class Request {
 public:
  Request(World* where, Tally* counts, std::shared_ptr<Held> file, long long position,
          unsigned int size);

  // Issues the read. Returns false if it was refused (the handle is being closed, or has no file);
  // then no callback comes.
  bool issue();
  // Aborts it if no callback has come.
  void abort();
  // Waits until it has been called back. Returns false after seconds.
  bool waitUntilAnswered(int seconds);
  bool answered() const { return calls > 0; }
  // True if this thread is inside abort(): its callback runs here.
  bool insideAbort() const { return aborter.load() == std::this_thread::get_id(); }
  // Compares the bytes with the resource, if it was called back. positions are those at which it
  // may have begun: an earlier request may have moved the handle before this one was issued.
  void check(const std::set<long long>& positions);
  // No more callbacks can come: checks their number and frees the buffer.
  void finish();

  int status() const { return firstStatus; }
  unsigned int bytes() const { return static_cast<unsigned int>(firstBytes); }

  const long long from;  // the handle's position before the issue
  const unsigned int asked;
  const std::shared_ptr<Held> held;
  // Called in the first callback, without locks.
  std::function<void(Request*)> then;

 private:
  static void completed(int id, void* userData, int status, int readBytes);
  void count(int id, int status, int readBytes);
  void fail(const std::string& what);
  std::string faultFrom(long long position, bool disturbed) const;
  bool statusIsRight(long long position, bool disturbed) const;

  World* const world;
  Tally* const tally;
  std::vector<char> buffer;
  std::mutex gate;  // held by an abort, and while a callback is counted
  std::atomic<std::thread::id> aborter;
  std::mutex lock;
  std::condition_variable changed;
  int requestId = 0;
  bool counted = false;       // a callback has begun; guarded by lock
  std::atomic<int> calls{0};  // callbacks that have returned
  int firstStatus = 0;
  int firstBytes = 0;
  std::atomic<bool> aborted{false};   // an abort was called before any callback had come
  std::atomic<int> whileAborting{0};  // callbacks on the aborting thread, inside its abort
  std::atomic<bool> closedMeanwhile{false};
  int ownMark = 0;
  int targetMark = 0;
  bool wasLearnt = false;
};

}  // namespace stress

#endif  // FLUVIAFS_TESTS_ORDEAL_STRESS_REQUEST_H_
