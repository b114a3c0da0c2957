#ifndef FLUVIAFS_TESTS_SUPPORT_QUEUEPROBE_H_
#define FLUVIAFS_TESTS_SUPPORT_QUEUEPROBE_H_

#include <string>
#include <utility>
#include <vector>

#include "util/BufferQueue.h"

namespace util {

// Looks into a buffer queue.
class BufferQueueProbe {
 public:
  // Checks the block list of a queue whose resource holds the test pattern: order, overlaps, where
  // the next connection would write, and the bytes of one block, another one each round. Returns an
  // empty string, or the error.
  static std::string fault(BufferQueue& queue, int round);
  // The state in words.
  static std::string describe(BufferQueue& queue);

  static constexpr long long kReadAheadMargin = BufferQueue::kReadAheadMargin;

  static int version(BufferQueue& queue) { return queue.version; }
  static int status(BufferQueue& queue) { return queue.streamStatus; }
  static int retries(BufferQueue& queue) { return queue.retryCount; }
  static int activeWork(BufferQueue& queue) { return queue.activeWorkNum; }
  static int blockCount(BufferQueue& queue) { return queue.blockCount; }
  static bool isParked(BufferQueue& queue) {
    Lock feed(queue.feedLock);
    return queue.connection.state == StreamConnection::kParked;
  }
  // The count is process-wide, and earlier tests may have changed it.
  static void forgetParkedWaits() { BufferQueue::feedWaitCount = 0; }
  // True while the queue's worker is inside startStreaming.
  static bool isConnecting(BufferQueue& queue) {
    return underLock(queue, &BufferQueue::connecting);
  }
  static bool wantsFeed(BufferQueue& queue) { return underLock(queue, &BufferQueue::needFeed); }
  static bool readWaits(BufferQueue& queue) { return underLock(queue, &BufferQueue::readRunning); }
  // The offset of a reader that waits for bytes which are neither buffered nor come with this
  // connection; -1 if none does. Judges by the blocks and the connection, whatever the reader has
  // asked for.
  static long long passedBy(BufferQueue& queue) {
    Lock feed(queue.feedLock);
    const long long offset = queue.readOffset;
    return queue.wish.stands() && !queue.holds(offset) && !queue.comesWithThisConnection(offset)
               ? offset
               : -1;
  }
  // Beginning of the block of the last read.
  static long long readTail(BufferQueue& queue) {
    Lock feed(queue.feedLock);
    return (*queue.rdTail)->getBeginningSeqNum();
  }
  // Sets the longest pause of the transfers of all queues.
  static void setLongestPause(int milliseconds) { BufferQueue::longestPauseMs = milliseconds; }
  static void resetLongestPause() { setLongestPause(BufferQueue::kLongestPauseMs); }
  // True if a transfer waits for room and was not woken since.
  static bool transferRests(BufferQueue& queue) {
    Lock feed(queue.feedLock);
    return queue.room.waits && !queue.room.woken;
  }
  // The same, and it no longer waits for more than one block.
  static bool transferSleepsOn(BufferQueue& queue) {
    Lock feed(queue.feedLock);
    return queue.room.waits && !queue.room.woken && queue.room.resumeAt == 0;
  }
  // Imitates a reader that waits at the offset and has not had its turn since: only its wish is
  // set.
  static void ask(BufferQueue& queue, long long offset);
  // Fills the blocks, from the front on, with the pattern from an offset on, and moves reader and
  // writer to the front one.
  static void arrange(BufferQueue& queue,
                      const std::vector<std::pair<long long, unsigned int>>& held);
  // Makes the reader's last wait a short one.
  static void keepUp(BufferQueue& queue);
  // Imitates a reader that waits for a block at the offset, was woken, and has not had the lock
  // since.
  static void waitWoken(BufferQueue& queue, long long offset);
  // Announces a newer version at the write head, as a restart of the stream does, and wakes all
  // waiting threads or none.
  static void announce(BufferQueue& queue, bool wakes = true);
  // Changes the last byte of the cached head, with which the next head is compared.
  static void changeHead(BufferQueue& queue);
  // Wakes all waiting threads, as any call on the queue may.
  static void wake(BufferQueue& queue);
  // Sets the status that a cancel event leaves if it meets a broken read.
  static void leaveBroken(BufferQueue& queue) { queue.setStatus(STATUS_RELEASED); }

 private:
  // Reads a flag between two steps of the thread that changes it.
  template <typename Flag>
  static bool underLock(BufferQueue& queue, Flag BufferQueue::*flag) {
    Lock feed(queue.feedLock);
    return queue.*flag;
  }
};

}  // namespace util

#endif  // FLUVIAFS_TESTS_SUPPORT_QUEUEPROBE_H_
