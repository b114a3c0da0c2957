// Random readers on a buffer queue with a producer that behaves like a bad network. Reads are
// compared with the pattern of the resource, and the block list is checked after each step. From
// the time that a reader begins to wait, at most one chunk is taken that does not serve it.
#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <random>
#include <thread>
#include <vector>

#include "tests/support/Delays.h"
#include "tests/support/Pattern.h"
#include "tests/support/QueueProbe.h"
#include "tests/support/Watchdog.h"
#include "util/BufferQueue.h"
#include "util/Log.h"

namespace {

using util::BufferQueue;
using util::BufferQueueProbe;

struct Resource {
  long long size;
  bool seekable;
  bool lengthKnown;
  bool badNetwork;
  unsigned int largestChunk;
};

// Delivers the pattern on the worker's thread, as a network transfer does, and ends it in every
// possible way. It never fails twice without a byte in between, so every read must succeed.
class BadNetwork : public util::BufferQueueProducer {
 public:
  BadNetwork(const Resource& kind, unsigned int seed) : resource(kind), random(seed) {}

  void setOutput(util::BufferQueueDataReceiver* receiver) override { out = receiver; }
  void watch(BufferQueue* watched) { queue = watched; }
  void release() override { stopStreaming(); }
  bool isRandomAccess() override { return resource.seekable; }
  long long getContentSize() override { return learntSize; }
  void setBreak() override { broken = true; }
  bool getStopWait() override { return stopWait; }
  void setStopWait() override { stopWait = true; }

  int startStreaming(int version, long long from, long long count) override {
    {
      std::lock_guard<std::mutex> guard(lock);
      running = true;
      stopRequested = false;
    }
    ++connections;
    passedInARow = 0;
    const int event = transfer(version, from, count);
    out->notifyStreamException(event);
    std::lock_guard<std::mutex> guard(lock);
    running = false;
    changed.notify_all();
    return 0;
  }

  int stopStreaming() override {
    std::unique_lock<std::mutex> guard(lock);
    stopRequested = true;
    stopWait = false;
    changed.notify_all();
    changed.wait(guard, [this] { return !running; });
    return 0;
  }

  std::atomic<int> connections{0};
  // The most chunks in a row that went past a waiting reader which had no use for them.
  std::atomic<int> mostPassedBy{0};

 private:
  // Delivers a chunk. Counts the chunks that are taken while one reader waits for others.
  int deliver(char* chunk, unsigned int size, int version) {
    const long long waited = BufferQueueProbe::passedBy(*queue);
    const int result = out->streamIn(chunk, size, version);
    const bool passed = result != 0 && waited >= 0 && BufferQueueProbe::passedBy(*queue) == waited;
    passedInARow = !passed ? 0 : waited == passedOffset ? passedInARow + 1 : 1;
    passedOffset = waited;
    mostPassedBy = std::max<int>(mostPassedBy, passedInARow);
    return result;
  }

  bool chance(unsigned int oneIn) { return random() % oneIn == 0; }

  // Runs one connection; returns the event it ends with.
  int transfer(int version, long long from, long long count) {
    const long long end =
        count > 0 && !overdeliver() ? std::min(from + count, resource.size) : resource.size;
    if (learntSize == 0) {
      if (mayFail && resource.badNetwork && chance(4)) return failure();
      learntSize = resource.lengthKnown ? resource.size : util::UNKNOWN_CONTENT_SIZE;
    }
    out->notifyStreamException(util::STREAM_NORMAL);
    std::vector<char> chunk(resource.largestChunk);
    for (long long at = from; at < end;) {
      if (stopRequested) return util::STREAM_CANCELED;
      if (resource.badNetwork) {
        if (chance(50)) stall();
        if (broken.exchange(false)) return util::STREAM_DEAD;
        if (mayFail && chance(60)) return failure();
      }
      const unsigned int n = static_cast<unsigned int>(
          std::min<long long>(1 + random() % resource.largestChunk, end - at));
      support::fillPattern(static_cast<unsigned long long>(at), chunk.data(), n);
      if (deliver(chunk.data(), n, version) == 0) {
        while (stopWait) std::this_thread::yield();
        return util::STREAM_CANCELED;
      }
      mayFail = true;
      at += n;
    }
    mayFail = from < end;
    if (end == resource.size) learntSize = resource.size;
    return util::EVENT_STREAM_PARTIAL_END;
  }

  bool overdeliver() { return resource.badNetwork && chance(8); }

  int failure() {
    mayFail = false;
    switch (random() % 3) {
      case 0:
        return util::STREAM_ERROR;
      case 1:
        return util::STREAM_TIMEOUT;
      default:
        return util::EVENT_STREAM_PARTIAL_END;
    }
  }

  // Pauses for a while, unless the transfer is stopped.
  void stall() {
    std::unique_lock<std::mutex> guard(lock);
    changed.wait_for(guard, std::chrono::milliseconds(random() % 4),
                     [this] { return stopRequested.load(); });
  }

  const Resource resource;
  std::mt19937 random;
  util::BufferQueueDataReceiver* out = nullptr;
  BufferQueue* queue = nullptr;
  int passedInARow = 0;
  long long passedOffset = -1;
  std::atomic<long long> learntSize{0};
  std::atomic<bool> broken{false};
  std::atomic<bool> stopWait{false};
  std::atomic<bool> stopRequested{false};
  bool mayFail = true;
  std::mutex lock;
  std::condition_variable changed;
  bool running = false;
};

struct Model {
  int blocks;
  Resource resource;
  int steps;
  bool breaks;
  const char* name;
};

std::ostream& operator<<(std::ostream& stream, const Model& model) { return stream << model.name; }

class BufferQueueModel : public testing::TestWithParam<Model> {};

// Where the next read begins: mostly nearby, sometimes anywhere.
long long nextOffset(std::mt19937& random, long long offset, long long size) {
  switch (random() % 8) {
    case 0:
      return static_cast<long long>(random() % static_cast<unsigned long long>(size + 1));
    case 1:
      return std::max(0LL, offset - static_cast<long long>(random() % 200000));
    case 2:
      return std::min(size, offset + static_cast<long long>(random() % 200000));
    case 3:
      return std::min(size, offset + 65536);
    default:
      return offset;
  }
}

// Queries the queue's buffered size while others read, and sometimes breaks their reads.
class Disturber {
 public:
  Disturber(BufferQueue* disturbed, bool mayBreak, unsigned int seed)
      : queue(disturbed), breaks(mayBreak), thread([this, seed] { run(seed); }) {}
  ~Disturber() { end(); }
  Disturber(const Disturber&) = delete;
  Disturber& operator=(const Disturber&) = delete;

  void end() {
    ended = true;
    if (thread.joinable()) thread.join();
  }
  // Called after each read.
  void noteStep() { ++steps; }
  // Called before a read...
  int breaksOver() const { return over; }
  // ...and after it: true if a break was running meanwhile.
  bool disturbedSince(int overBefore) const { return begun != overBefore; }

 private:
  void run(unsigned int seed) {
    std::mt19937 dice(seed);
    int brokenAt = 0;
    while (!ended) {
      queue->getBufferedSize(static_cast<long long>(dice() % 2000000));
      queue->getMiniBlockOffset();
      // At most every fourth read, or slow ones would hardly ever succeed.
      if (breaks && dice() % 64 == 0 && steps - brokenAt >= 4) {
        brokenAt = steps;
        ++begun;
        queue->breakRead();
        ++over;
      }
      std::this_thread::yield();
    }
  }

  BufferQueue* const queue;
  const bool breaks;
  std::atomic<bool> ended{false};
  std::atomic<int> steps{0};
  std::atomic<int> begun{0};
  std::atomic<int> over{0};
  std::thread thread;
};

// Reads at random offsets and compares the bytes with the resource.
class RandomReader {
 public:
  RandomReader(BufferQueue* from, const Resource& what, Disturber* others, support::Watchdog* dog,
               unsigned int seed)
      : queue(from), resource(what), disturber(others), watchdog(dog), random(seed) {}

  // Makes one read. Returns an empty string, or the error of the read or of the queue.
  std::string step(int number) {
    offset = nextOffset(random, offset, resource.size);
    const unsigned int size = nextSize();
    const std::string what = "step " + std::to_string(number) + ": " + std::to_string(size) +
                             " bytes at " + std::to_string(offset);
    watchdog->at(what);
    std::string wrong = read(size);
    if (wrong.empty()) wrong = BufferQueueProbe::fault(*queue, number);
    disturber->noteStep();
    return wrong.empty() ? "" : what + ": " + wrong;
  }

  // The number of reads with the right result.
  int succeeded() const { return right; }

 private:
  unsigned int nextSize() {
    return static_cast<unsigned int>(random() % 4 == 0 ? random() % buffer.size()
                                                       : random() % 5000);
  }

  std::string read(unsigned int size) {
    const int overBefore = disturber->breaksOver();
    long long moved = 0;
    unsigned int got = 0;
    const bool moves = queue->seek(offset, &moved);
    const int result = moves ? queue->read(buffer.data(), size, &got) : -4;
    const bool sizeKnown = queue->getContentSize() != 0;
    const long long begin = offset;
    offset = std::min(resource.size, begin + got);
    if (support::firstDifference(static_cast<unsigned long long>(begin), buffer.data(), got) >= 0) {
      return "wrong bytes";
    }
    const unsigned int want =
        static_cast<unsigned int>(std::min<long long>(size, resource.size - begin));
    const bool ended = result == -13 && want == 0 && sizeKnown;
    if (result == 0 ? got == want : ended) {
      ++right;
    } else if (!disturber->disturbedSince(overBefore)) {
      return "result " + std::to_string(result) + " with " + std::to_string(got);
    }
    return "";
  }

  BufferQueue* const queue;
  const Resource& resource;
  Disturber* const disturber;
  support::Watchdog* const watchdog;
  std::mt19937 random;
  std::vector<char> buffer = std::vector<char>(150000);
  long long offset = 0;
  int right = 0;
};

TEST_P(BufferQueueModel, HandsOutTheRightBytes) {
  const Model& model = GetParam();
  const unsigned int seed = support::printedSeed();
  util::LOG_LEV = -5;
  // An hour: no reader may depend on the clock that ends the pause of a transfer without room.
  BufferQueueProbe::setLongestPause(3600000);
  BadNetwork network(model.resource, seed);
  BufferQueue queue(model.blocks * 32768);
  network.setOutput(&queue);
  network.watch(&queue);
  ASSERT_TRUE(queue.initialize(&network));
  // A reader also begins to wait, seeks or is broken between two steps of a restart.
  const support::Delays delays;
  support::Watchdog watchdog(20, [&] { return BufferQueueProbe::describe(queue); });
  Disturber others(&queue, model.breaks, seed + 2);
  RandomReader reader(&queue, model.resource, &others, &watchdog, seed + 1);
  std::string wrong;
  const int steps = support::scaled(model.steps);
  for (int step = 0; step < steps && wrong.empty(); ++step) wrong = reader.step(step);
  watchdog.at("joining");
  others.end();
  EXPECT_GT(reader.succeeded(), steps / 4);
  EXPECT_EQ(wrong, "") << BufferQueueProbe::describe(queue);
  watchdog.at("release");
  queue.release();
  network.release();
  EXPECT_LE(network.mostPassedBy, 1) << "a waiting reader was forgotten";
  RecordProperty("connections", network.connections);
  BufferQueueProbe::resetLongestPause();
}

constexpr Resource kGood{2000000, true, true, false, 16384};
constexpr Resource kBad{2000000, true, true, true, 16384};
constexpr Resource kBigChunks{2000000, true, true, true, 200000};
constexpr Resource kNoSeek{700000, false, true, true, 16384};
constexpr Resource kNoLength{400000, false, false, true, 16384};
constexpr Resource kTiny{100, true, true, true, 40};
constexpr Resource kAligned{262144, true, true, true, 32768};

std::string nameOf(const testing::TestParamInfo<Model>& parameter) { return parameter.param.name; }

INSTANTIATE_TEST_SUITE_P(All, BufferQueueModel,
                         testing::Values(Model{2, kGood, 4000, false, "TwoBlocks"},
                                         Model{3, kGood, 4000, false, "ThreeBlocks"},
                                         Model{8, kGood, 1500, false, "EightBlocks"},
                                         Model{16, kBad, 1500, false, "SixteenBlocksBadNetwork"},
                                         Model{16, kBad, 1000, true, "SixteenBlocksBreaks"},
                                         Model{8, kNoSeek, 1500, false, "EightBlocksNoSeek"},
                                         Model{64, kGood, 4000, false, "ManyBlocks"},
                                         Model{2, kBad, 4000, false, "TwoBlocksBadNetwork"},
                                         Model{3, kBad, 4000, false, "ThreeBlocksBadNetwork"},
                                         Model{4, kBad, 4000, false, "FourBlocksBadNetwork"},
                                         Model{64, kBad, 4000, false, "ManyBlocksBadNetwork"},
                                         Model{2, kBigChunks, 3000, false, "TwoBlocksBigChunks"},
                                         Model{5, kBigChunks, 3000, false, "FiveBlocksBigChunks"},
                                         Model{2, kNoSeek, 1500, false, "TwoBlocksNoSeek"},
                                         Model{3, kNoSeek, 1500, false, "ThreeBlocksNoSeek"},
                                         Model{64, kNoSeek, 1500, false, "ManyBlocksNoSeek"},
                                         Model{3, kNoLength, 1500, false, "ThreeBlocksNoLength"},
                                         Model{64, kNoLength, 1500, false, "ManyBlocksNoLength"},
                                         Model{2, kTiny, 2000, false, "TwoBlocksTiny"},
                                         Model{2, kAligned, 3000, false, "TwoBlocksAligned"},
                                         Model{8, kAligned, 3000, false, "EightBlocksAligned"},
                                         Model{2, kBad, 2000, true, "TwoBlocksBreaks"},
                                         Model{3, kBad, 2000, true, "ThreeBlocksBreaks"},
                                         Model{64, kNoSeek, 1000, true, "ManyBlocksNoSeekBreaks"}),
                         nameOf);

}  // namespace
