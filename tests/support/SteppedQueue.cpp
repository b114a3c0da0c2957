#include "tests/support/SteppedQueue.h"

#include <algorithm>
#include <string>

#include "tests/support/Pattern.h"

namespace support {

using testing::AssertionFailure;
using testing::AssertionResult;
using testing::AssertionSuccess;
using util::BufferQueue;
using util::BufferQueueProbe;

int SteppedProducer::startStreaming(int version, long long from, long long length) {
  {
    std::lock_guard<std::mutex> guard(lock);
    runs.push_back({version, from, length});
    stopped = false;
  }
  if (duringStart) duringStart();
  while (staysInside && !stopped) std::this_thread::yield();
  return startResult;
}

int SteppedProducer::stopStreaming() {
  ++stops;
  stopped = true;
  if (duringStop) duringStop();
  stopWait = false;
  return 0;
}

std::vector<Started> SteppedProducer::started() const {
  std::lock_guard<std::mutex> guard(lock);
  return runs;
}

Reading::Reading(BufferQueue* queue, long long offset, unsigned int size)
    : buffer(std::max(1u, size)), thread([this, queue, offset, size] {
        long long now = 0;
        moved = queue->seek(offset, &now);
        result = moved ? queue->read(buffer.data(), size, &got) : -4;
        ended = true;
      }) {}

Reading::~Reading() { thread.join(); }

bool Reading::hasEnded() {
  return eventually([this] { return ended.load(); });
}

WaitingCall::WaitingCall(BufferQueue* of, std::function<void()> call)
    : queue(of), thread([this, call] {
        call();
        returned = true;
      }) {}

WaitingCall::~WaitingCall() {
  if (!thread.joinable()) return;
  queue->release();
  thread.join();
}

bool WaitingCall::hasReturned() {
  return eventually([this] { return returned.load(); });
}

void WaitingCall::join() { thread.join(); }

SteppedQueue::~SteppedQueue() {
  if (queue != nullptr) queue->release();
}

void SteppedQueue::make(int blocks) {
  queue.reset(new BufferQueue(blocks * static_cast<int>(kBlock)));
  ASSERT_TRUE(queue->initialize(&producer));
}

std::unique_ptr<Reading> SteppedQueue::read(long long offset, unsigned int size) {
  std::unique_ptr<Reading> reading(new Reading(queue.get(), offset, size));
  EXPECT_TRUE(runs(1));
  EXPECT_TRUE(waits());
  return reading;
}

std::unique_ptr<Reading> SteppedQueue::connect(long long offset, unsigned int size) {
  std::unique_ptr<Reading> reading = read(offset, size);
  event(util::STREAM_NORMAL);
  return reading;
}

AssertionResult SteppedQueue::beginsWith(int blocks, unsigned int size) {
  make(blocks);
  const std::unique_ptr<Reading> first = connect(0, 10);
  if (deliver(0, size) != 1) return AssertionFailure() << "the first bytes end their connection";
  if (!first->hasEnded()) return AssertionFailure() << "the first read waits on";
  return AssertionSuccess();
}

bool SteppedQueue::runs(size_t count) {
  return eventually([&] {
    if (producer.started().size() < count) return false;
    return producer.staysInside || !BufferQueueProbe::isConnecting(*queue);
  });
}

bool SteppedQueue::waits() {
  return eventually([&] { return BufferQueueProbe::readWaits(*queue); });
}

bool SteppedQueue::wants() {
  return eventually([&] { return BufferQueueProbe::wantsFeed(*queue); });
}

AssertionResult SteppedQueue::givesWay(long long offset, unsigned int size) {
  const size_t before = producer.started().size();
  if (!wants()) return AssertionFailure() << "no reader wants another connection";
  if (deliver(offset, size) != 0) return AssertionFailure() << "the connection goes on";
  if (!runs(before + 1)) return AssertionFailure() << "no other connection is started";
  return AssertionSuccess();
}

bool SteppedQueue::transferWaits() {
  return eventually([this] { return log.has("streamIn: wait in streamIn"); });
}

int SteppedQueue::deliver(long long offset, unsigned int size) {
  return deliverAs(BufferQueueProbe::version(*queue), offset, size);
}

int SteppedQueue::deliverAs(int version, long long offset, unsigned int size) {
  std::string bytes = pattern(static_cast<unsigned long long>(offset), size);
  return queue->streamIn(&bytes[0], size, version);
}

void SteppedQueue::event(int number) { queue->notifyStreamException(number); }

bool SteppedQueue::right(const Reading& reading, long long offset) {
  return firstDifference(static_cast<unsigned long long>(offset), reading.buffer.data(),
                         reading.got) == -1;
}

}  // namespace support
