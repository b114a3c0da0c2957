// Where a reader is, and its waits.
#include <algorithm>

#include "util/BufferQueue.h"
#include "util/Clock.h"
#include "util/Log.h"

namespace util {

namespace {
// A fast reader is woken when 1 / kGatherShare of the blocks is buffered, or after kGatherMs.
constexpr int kGatherShare = 4;
constexpr int kGatherMs = 2;
}  // namespace

// Waits on feedLock's condition until the bytes that the read still lacks have arrived (at most a
// few blocks of them), or until anything but data comes. A reader that keeps up with the transfer
// waits for more bytes than it lacks, but not for long.
void BufferQueue::waitAsReader(ReaderWish::Kind kind) {
  ++waits;
  wish = ReaderWish();
  wish.kind = kind;
  wish.asks = kind == ReaderWish::kBlock && needFeed;
  wish.until = std::min(reading.end, alignLeft(readOffset) + kWakeDistance);
  const long long much = blockCount / kGatherShare * static_cast<long long>(kBlockSize);
  const bool gather = much > 0 && pace.keepsUp(readOffset, much);
  if (gather) wish.until = std::max(wish.until, readOffset + much);
  if (contentSize > 0) wish.until = std::min(wish.until, contentSize.get());
  const long long since = monotonicMs();
  if (gather) {
    waitOnFeed(kGatherMs);
  } else {
    waitOnFeed();
  }
  pace.waited(monotonicMs() - since < kGatherMs);
  wish = ReaderWish();
}

// Waits on feedLock's condition between two trace lines. Returns why the reader continues.
BufferQueue::Wake BufferQueue::waitForFeed(const char* before, const char* after, long long pos) {
  if (!breakRequested) placeReader();
  if (!breakRequested && !exits()) {
    // The transfer has ended and waits for a wish that this reader does not have: on a stream that
    // cannot seek a reader only waits, and no more data will come.
    if (connection.state == StreamConnection::kParked && !needFeed) return Wake::kEnd;
    wakeAll();
    if (before != nullptr) FLUVIA_LOG_AS("fill", 2, "%s", before);
    waitAsReader(ReaderWish::kBlock);
    FLUVIA_LOG_AS("fill", 2, "%s", after);
  }
  if (breakRequested) {
    breakRequested = false;
    return Wake::kBroken;
  }
  if (needExit()) return Wake::kExit;
  return atEnd(pos) ? Wake::kEnd : Wake::kLook;
}

// A reader that begins to wait while nothing streams and no restart is pending would wait for ever:
// it asks for a connection itself.
void BufferQueue::placeReader() {
  if (connection.state != StreamConnection::kNone || producer == nullptr || exits()) return;
  // Without a size no block counts as unfinished, and another one would be placed beside it.
  const bool inWriteHead = contentSize <= 0 && (*wtHead)->willContained(readOffset);
  const bool comesInOrder = !seekable && readOffset >= (*wtHead)->getBeginningSeqNum();
  if ((*rdTail)->isUnused() || inWriteHead || comesInOrder) {
    restartFromWriteHead();
  } else {
    feedReader();
  }
}

// Moves one block forward, unless pos is before that block.
bool BufferQueue::stepForward(long long pos) {
  const BlockIt next = std::next(rdTail);
  if (next == blocks.end() || (*next)->isUnused() || pos < (*next)->getBeginningSeqNum()) {
    return false;
  }
  rdTail = next;
  ++room.steps;
  return true;
}

// Moves one block back, unless pos is behind that block.
bool BufferQueue::stepBackward(long long pos) {
  if (rdTail == blocks.begin()) return false;
  const BlockIt previous = std::prev(rdTail);
  if (pos >= (*previous)->getBeginningSeqNum() + (*previous)->size()) return false;
  rdTail = previous;
  ++room.steps;
  return true;
}

// Moves rdTail forward to the block that will contain pos, waiting until there is one.
bool BufferQueue::findForward(long long pos) {
  while (!(*rdTail)->willContained(pos)) {
    if (stepForward(pos)) continue;
    if (atEnd(pos)) {
      reading.endReached = true;
      return false;
    }
    FLUVIA_LOG_AS(
        "fill", 2,
        "wait and feeding = true seq=%lld, read:%lld, read id=%d, wtHead id=%d, wtHead:%lld", pos,
        (*rdTail)->getBeginningSeqNum(), (*rdTail)->getId(), (*wtHead)->getId(),
        (*wtHead)->getBeginningSeqNum());
    needFeed = seekable;  // on a stream that cannot seek the reader only waits
    switch (waitForFeed("wait in fill", "wake up in fill", pos)) {
      case Wake::kBroken:
        FLUVIA_LOG_AS("fill", 2, "break out at fill FORWARD");
        wakeAll();
        return false;
      case Wake::kExit:
        FLUVIA_LOG_AS("fill", 2, "needexit at fill");
        return false;
      case Wake::kEnd:
        reading.endReached = true;
        return false;
      case Wake::kLook:
        break;
    }
  }
  return true;
}

// Moves rdTail backward to the block that will contain pos, waiting until there is one.
// *forwardInstead: the stream restarted, and the data must be searched forward.
bool BufferQueue::findBackward(long long pos, bool* forwardInstead) {
  while (!(*rdTail)->willContained(pos)) {
    const bool inFront = rdTail == blocks.begin();
    if (!inFront && stepBackward(pos)) continue;
    const Wake wake = waitBackward(pos, inFront);
    if (wake == Wake::kBroken) {
      FLUVIA_LOG_AS("fill", 2, "%s",
                    inFront ? "break out fill BACKWARD" : "break out at fill BACKWARD");
      wakeAll();
      return false;
    }
    if (wake == Wake::kEnd) reading.endReached = true;
    if (wake != Wake::kLook) return false;
    // A late reader finds that the new stream has already left its first block.
    const bool beganAnew =
        blocks.front()->getBeginningSeqNum() == 0 || (*rdTail)->isForwarding(pos);
    if (inFront && !seekable && beganAnew) {
      FLUVIA_LOG_AS("fill", 1,
                    "streaming is not seekable, upper layer seek to previous position, fluviafs "
                    "need reconnect stream and read from begin of stream, so need to read "
                    "forward\n");
      *forwardInstead = true;
      return true;
    }
  }
  return true;
}

// Waits for pos, which lies before the front block, or in a gap before the block at rdTail.
BufferQueue::Wake BufferQueue::waitBackward(long long pos, bool inFront) {
  if (inFront) {
    FLUVIA_LOG_AS("fill", 2, "wait in the first block, rd:%lld, offset:%lld",
                  (*rdTail)->getBeginningSeqNum(), pos);
    needFeed = true;
    return waitForFeed(nullptr, "wake up in fill BACKWARD", pos);
  }
  FLUVIA_LOG_AS("fill", 2,
                "wait in backword finding  readOffset=%lld, read:%lld, read id=%d, wtHead "
                "id=%d, wtHead:%lld",
                pos, (*rdTail)->getBeginningSeqNum(), (*rdTail)->getId(), (*wtHead)->getId(),
                (*wtHead)->getBeginningSeqNum());
  needFeed = true;
  return waitForFeed(nullptr, "wake up in fill3", pos);
}

// Waits until the block at rdTail is the one that will contain pos; without notCheck it must be.
bool BufferQueue::waitForBlock(long long pos, bool notCheck) {
  while (!(*rdTail)->willContained(pos)) {
    if (!notCheck) {
      FLUVIA_LOG_AS("easyFill", 2, "error, the argument error");
      return false;
    }
    FLUVIA_LOG_AS("easyFill", 2, "not chek branch, wait and feeding = true");
    needFeed = true;
    FLUVIA_LOG_AS("easyFill", 2, "wait in notCheck");
    waitOnFeed();
    FLUVIA_LOG_AS("easyFill", 2, "wake up in notCheck");
    if (breakRequested) {
      breakRequested = false;
      wakeAll();
      return false;
    }
    if (needExit()) return false;
  }
  return true;
}

// Waits while the reader's block is being written.
void BufferQueue::waitInBlock(const BufferBlock* block) {
  FLUVIA_LOG_AS("easyFill", 2,
                "wait and feeding = false, begin index:%lld, readOffset:%lld, streamStatus:%d",
                block->getBeginningSeqNum(), readOffset.get(), streamStatus.get());
  needFeed = false;
  if (!breakRequested) placeReader();
  wakeAll();
  if (!breakRequested && !exits()) waitAsReader(ReaderWish::kRest);
  FLUVIA_LOG_AS("easyFill", 2, "wake up at easyfill");
}

// Moves rdTail to where the waiting reader will go when it runs: its data may have been stored
// since it last checked.
void BufferQueue::followReader() {
  if (needFeed) moveReaderTo(readOffset);
}

void BufferQueue::moveReaderTo(long long pos) {
  const bool forward = pos >= (*rdTail)->getBeginningSeqNum();
  while (!(*rdTail)->willContained(pos) && (forward ? stepForward(pos) : stepBackward(pos))) {
  }
}

}  // namespace util
