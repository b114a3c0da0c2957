#ifndef FLUVIAFS_BENCH_COMMON_ONETHREADQUEUE_H_
#define FLUVIAFS_BENCH_COMMON_ONETHREADQUEUE_H_

#include <cstring>
#include <thread>
#include <vector>

#include "bench/common/ScriptedProducer.h"
#include "util/BufferQueue.h"

namespace bench {

// A buffer queue that one thread both fills and reads. No thread waits and every run is the same,
// so that only the path of the bytes is counted.
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

  // Makes the first read request a connection. Returns false if it fails.
  bool start() {
    if (!queue.initialize(&producer)) return false;
    bool good = false;
    std::thread first([this, &good] { good = readBlock(kBlock); });
    version = producer.awaitStart();
    const bool stored = fillBlock(kBlock);
    first.join();
    return good && stored && rightBlock();
  }

  // Writes one block in chunks and reads it in reads of that many bytes, which divide a block.
  // Returns false if the queue did not take or return them.
  bool pass(unsigned int chunk, unsigned int read) { return fillBlock(chunk) && readBlock(read); }
  // True if the last block was read as it was written.
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
