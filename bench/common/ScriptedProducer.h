#ifndef FLUVIAFS_BENCH_COMMON_SCRIPTEDPRODUCER_H_
#define FLUVIAFS_BENCH_COMMON_SCRIPTEDPRODUCER_H_

#include <condition_variable>
#include <mutex>

#include "util/BufferQueueDataReceiver.h"
#include "util/BufferQueueProducer.h"

namespace bench {

// A producer that sends nothing by itself: the measuring thread calls the queue's streamIn() with
// the version of the start. So one thread does all the measured work.
//
// Threads: as its base class says; awaitStart() from any.
class ScriptedProducer : public util::BufferQueueProducer {
 public:
  explicit ScriptedProducer(long long bytes) : size(bytes) {}

  // Waits for the request of a connection. Returns its version.
  int awaitStart() {
    std::unique_lock<std::mutex> guard(lock);
    changed.wait(guard, [this] { return started; });
    return version;
  }

  void setOutput(util::BufferQueueDataReceiver*) override {}
  void release() override {}
  int startStreaming(int startVersion, long long, long long) override {
    const std::lock_guard<std::mutex> guard(lock);
    started = true;
    version = startVersion;
    changed.notify_all();
    return 0;
  }
  int stopStreaming() override { return 0; }
  bool isRandomAccess() override { return true; }
  long long getContentSize() override { return size; }
  void setBreak() override {}
  bool getStopWait() override { return false; }
  void setStopWait() override {}

 private:
  const long long size;
  std::mutex lock;
  std::condition_variable changed;
  bool started = false;
  int version = 0;
};

}  // namespace bench

#endif  // FLUVIAFS_BENCH_COMMON_SCRIPTEDPRODUCER_H_
