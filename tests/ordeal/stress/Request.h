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
//          meets the id's next owner.
class Request {
 public:
  Request(World* where, Tally* counts, std::shared_ptr<Held> file, long long position,
          unsigned int size);

  // Asks for the read. False when it was refused (the handle is being closed, or stands for
  // nothing); no callback comes then.
  bool issue();
  // Aborts it when no callback has come.
  void abort();
  // Waits until it has been called back; false after seconds.
  bool waitUntilAnswered(int seconds);
  bool answered() const { return calls > 0; }
  // This thread is inside abort(): its callback comes here.
  bool insideAbort() const { return aborter.load() == std::this_thread::get_id(); }
  // Compares what came with the resource, when it was answered. positions are those at which it may
  // have begun: a request before it may have moved the handle before it was asked for.
  void check(const std::set<long long>& positions);
  // No callback can come any more: checks their number and frees the buffer.
  void finish();

  int status() const { return firstStatus; }
  unsigned int bytes() const { return static_cast<unsigned int>(firstBytes); }

  const long long from;  // the handle's position before it was asked for
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
  std::atomic<int> calls{0};
  int firstStatus = 0;
  int firstBytes = 0;
  std::atomic<bool> aborted{false};   // an abort was called before a callback had come
  std::atomic<int> whileAborting{0};  // callbacks on the aborting thread, inside its abort
  std::atomic<bool> closedMeanwhile{false};
  int ownMark = 0;
  int targetMark = 0;
  bool wasLearnt = false;
};

}  // namespace stress

#endif  // FLUVIAFS_TESTS_ORDEAL_STRESS_REQUEST_H_
