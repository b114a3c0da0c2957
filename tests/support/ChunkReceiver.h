#ifndef FLUVIAFS_TESTS_SUPPORT_CHUNKRECEIVER_H_
#define FLUVIAFS_TESTS_SUPPORT_CHUNKRECEIVER_H_

#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "util/BufferQueueDataReceiver.h"

namespace support {

// Receiver of a producer's chunks and events. Keeps each with its size and version, and refuses or
// holds those that the test chooses.
class ChunkReceiver : public util::BufferQueueDataReceiver {
 public:
  // One call of the producer: a chunk (event kChunk) or an event.
  struct Call {
    int event;
    int version;
    std::string bytes;
  };
  static constexpr int kChunk = -1;

  int streamIn(void* data, unsigned int size, int version) override;
  void notifyStreamException(int event) override;

  // Holds the thread that brings a chunk until holdNextChunks(false).
  void holdNextChunks(bool hold) { set(&holdChunks, hold); }
  // Parks the transfer thread in its end events.
  void parkEnds(bool park) { set(&holdEnds, park); }

  std::vector<Call> calls() const;
  int count(int event) const;
  // Waits until that many calls of an event (or kChunk) were made. Returns false after
  // kWaitSeconds.
  bool waitFor(int event, int times) const;
  // The sizes of the chunks, in bytes.
  std::vector<int> sizes() const;
  // The bytes delivered under a version.
  std::string bytes(int version) const;

  // Set before a run.
  std::function<void()> onChunk;  // called with every chunk, without the receiver's lock
  int refuseAt = -1;              // the number of the refused chunk, counted from 1

 private:
  void set(bool* flag, bool value);
  void waitWhile(std::unique_lock<std::mutex>& guard, const bool& held);

  mutable std::mutex lock;
  std::condition_variable changed;
  std::vector<Call> made;
  int chunks = 0;
  bool holdChunks = false;
  bool holdEnds = false;
};

}  // namespace support

#endif  // FLUVIAFS_TESTS_SUPPORT_CHUNKRECEIVER_H_
