#include "tests/support/SteppedQueue.h"

#include <algorithm>
#include <string>

#include "tests/support/Pattern.h"

namespace support {

using util::BufferQueue;
using util::BufferQueueProbe;

int SteppedProducer::startStreaming(int version, long long from, long long length) {
  {
    std::lock_guard<std::mutex> guard(lock);
    runs.push_back({version, from, length});
    stopped = false;
  }
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

bool SteppedQueue::runs(size_t count) {
  return eventually([&] { return producer.started().size() >= count; });
}

bool SteppedQueue::waits() {
  return eventually([&] { return BufferQueueProbe::readWaits(*queue); });
}

bool SteppedQueue::wants() {
  return eventually([&] { return BufferQueueProbe::wantsFeed(*queue); });
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
