#ifndef FLUVIAFS_TESTS_SUPPORT_STEPPEDQUEUE_H_
#define FLUVIAFS_TESTS_SUPPORT_STEPPEDQUEUE_H_

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "tests/support/CapturedStderr.h"
#include "tests/support/QueueProbe.h"
#include "tests/support/Watchdog.h"
#include "util/BufferQueue.h"

// A buffer queue driven step by step: the test is the producer.
namespace support {

constexpr unsigned int kBlock = 32768;

// The arguments of one startStreaming().
struct Started {
  int version;
  long long from;
  long long length;
  bool operator==(const Started& other) const {
    return version == other.version && from == other.from && length == other.length;
  }
};

// A producer that only notes its calls; the test delivers in its place.
//
// Threads: the fields that are not atomic are set before the first start.
class SteppedProducer : public util::BufferQueueProducer {
 public:
  void setOutput(util::BufferQueueDataReceiver*) override {}
  void release() override {}
  int startStreaming(int version, long long from, long long length) override;
  int stopStreaming() override;
  bool isRandomAccess() override { return seekable; }
  long long getContentSize() override { return size; }
  void setBreak() override { ++breaks; }
  bool getStopWait() override { return stopWait; }
  void setStopWait() override { stopWait = true; }

  std::vector<Started> started() const;

  std::atomic<long long> size{10000000};
  std::atomic<bool> seekable{true};
  std::atomic<bool> stopWait{false};
  std::atomic<bool> stopped{false};  // since the last start
  std::atomic<int> startResult{0};
  std::atomic<bool> staysInside{false};  // a start returns when it is stopped
  std::atomic<int> stops{0};
  std::atomic<int> breaks{0};
  std::function<void()> duringStart;
  std::function<void()> duringStop;

 private:
  mutable std::mutex lock;
  std::vector<Started> runs;
};

// Seeks and reads in the queue, on a thread of its own; the result is valid after its end.
class Reading {
 public:
  Reading(util::BufferQueue* queue, long long offset, unsigned int size);
  ~Reading();
  Reading(const Reading&) = delete;
  Reading& operator=(const Reading&) = delete;

  // Waits for its end. Returns false if it does not end in time.
  bool hasEnded();

  std::vector<char> buffer;
  bool moved = false;
  unsigned int got = 77;
  int result = 77;
  std::atomic<bool> ended{false};

 private:
  std::thread thread;
};

// A call of the queue that may wait, on a thread of its own. The destructor closes the queue, so
// that a waiting call returns.
class WaitingCall {
 public:
  WaitingCall(util::BufferQueue* of, std::function<void()> call);
  ~WaitingCall();
  WaitingCall(const WaitingCall&) = delete;
  WaitingCall& operator=(const WaitingCall&) = delete;

  // Waits until the call has returned. Returns false if it does not return in time.
  bool hasReturned();
  void join();

  std::atomic<bool> returned{false};

 private:
  util::BufferQueue* const queue;
  std::thread thread;
};

// The fixture: a queue, its producer, and the log from level 2 on.
class SteppedQueue : public testing::Test {
 protected:
  ~SteppedQueue() override;

  void make(int blocks);
  // Starts a read and waits until the queue has requested its first connection.
  std::unique_ptr<Reading> read(long long offset, unsigned int size);
  // The same, and the connection begins.
  std::unique_ptr<Reading> connect(long long offset, unsigned int size);
  // Makes a queue that buffers [0, size); the connection is running, no thread reads any more.
  testing::AssertionResult beginsWith(int blocks, unsigned int size);
  // Waits until the producer was started that often and the worker has returned from it: an earlier
  // stop is repeated, and a worker that returns wakes all waiting threads.
  bool runs(size_t count);
  // Wait until a reader waits, or requests another connection.
  bool waits();
  bool wants();
  // Checks that a reader requests another connection, that this piece ends the present one for it,
  // and that the other one is started.
  testing::AssertionResult givesWay(long long offset, unsigned int size);
  // Waits until a transfer waits for room.
  bool transferWaits();
  // Deliver size bytes of the pattern from offset on, as the current version or as another.
  int deliver(long long offset, unsigned int size);
  int deliverAs(int version, long long offset, unsigned int size);
  void event(int number);
  // True if the read bytes are the pattern from offset on.
  static bool right(const Reading& reading, long long offset);

  const CapturedStderr log{2};
  std::atomic<bool> disturbed{false};  // a read was disturbed during the first stop
  SteppedProducer producer;
  std::unique_ptr<util::BufferQueue> queue;
  Watchdog watchdog{60, [this] { return util::BufferQueueProbe::describe(*queue); }};
};

}  // namespace support

#endif  // FLUVIAFS_TESTS_SUPPORT_STEPPEDQUEUE_H_
