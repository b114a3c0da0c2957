#ifndef FLUVIAFS_BENCH_COMMON_ONETHREADQUEUE_H_
#define FLUVIAFS_BENCH_COMMON_ONETHREADQUEUE_H_

#include <cstring>
#include <thread>
#include <vector>

#include "bench/common/ScriptedProducer.h"
#include "util/BufferQueue.h"

namespace bench {

// A buffer queue that one thread both fills and reads, so that nobody waits and nothing is left to
// chance: what is counted is the path of the bytes alone.
//
// Threads: one; others belong to the queue and sleep.
class OneThreadQueue {
 public:
  static constexpr unsigned int kBlock = 32768;

  OneThreadQueue() : producer(1LL << 50), queue(64 * static_cast<int>(kBlock)), out(kBlock) {
    for (unsigned int i = 0; i < kBlock; ++i) in.push_back(static_cast<unsigned char>(i * 7));
  }
  ~OneThreadQueue() { queue.release(); }
  OneThreadQueue(const OneThreadQueue&) = delete;
  OneThreadQueue& operator=(const OneThreadQueue&) = delete;

  // Lets the first read ask for a connection. False when it fails.
  bool start() {
    if (!queue.initialize(&producer)) return false;
    bool good = false;
    std::thread first([this, &good] { good = readBlock(kBlock); });
    version = producer.awaitStart();
    const bool stored = fillBlock(kBlock);
    first.join();
    return good && stored && rightBlock();
  }

  // One block in by chunks, and out by reads, of that many bytes, which divide a block. False when
  // the queue did not take or give them.
  bool pass(unsigned int chunk, unsigned int read) { return fillBlock(chunk) && readBlock(read); }
  // Whether the last block came out as it went in.
  bool rightBlock() const { return memcmp(in.data(), out.data(), kBlock) == 0; }

 private:
  bool fillBlock(unsigned int chunk) {
    for (unsigned int at = 0; at < kBlock; at += chunk) {
      if (queue.streamIn(&in[at], chunk, version) != 1) return false;
    }
    return true;
  }
  bool readBlock(unsigned int size) {
    for (unsigned int at = 0; at < kBlock; at += size) {
      unsigned int got = 0;
      if (queue.read(&out[at], size, &got) != 0 || got != size) return false;
    }
    return true;
  }

  ScriptedProducer producer;
  util::BufferQueue queue;
  int version = 0;
  std::vector<unsigned char> in;
  std::vector<char> out;
};

}  // namespace bench

#endif  // FLUVIAFS_BENCH_COMMON_ONETHREADQUEUE_H_
