// Reading and seeking.
#include <algorithm>
#include <vector>

#include "util/BufferQueue.h"
#include "util/Clock.h"
#include "util/Log.h"
#include "util/PausePoint.h"

namespace util {

namespace {

enum ReadResult {
  READ_OK = 0,
  READ_EXITING = -1,
  READ_FAILED = -4,
  READ_TIMEOUT = -6,
  READ_END = -13,
  READ_NOT_AVAILABLE = -17,
  READ_NOT_FOUND = -21
};

// Ways in which fill() looks for its data.
enum Direction { FILL_CHOOSE = 0, FILL_FORWARD = 1, FILL_BACKWARD = 2 };

// A reader that keeps up is woken when this part of the blocks is held, or after that time.
constexpr int kGatherShare = 4;
constexpr int kGatherMs = 2;

}  // namespace

class BufferQueue::RunningRead {
 public:
  RunningRead(BufferQueue* queue, const unsigned long long* number) REQUIRES(queue->feedLock)
      : queue_(queue) {
    queue_->readRunning = true;
    queue_->readNumber = number;
    // A break that named this read before it came here is not missed.
    queue_->breakRequested = number != nullptr && *number <= queue_->brokenUpTo;
    queue_->mayPlace = true;
    queue_->endReached = false;
  }
  ~RunningRead() NO_THREAD_SAFETY_ANALYSIS {
    // Whoever asked for a break waits for the end of the read.
    if (queue_->breakRequested) queue_->feedLock.notifyAll(0);
    queue_->readerWaits = false;
    queue_->breakRequested = false;
    queue_->needFeed = false;
    queue_->readRunning = false;
    queue_->readNumber = nullptr;
  }
  RunningRead(const RunningRead&) = delete;
  RunningRead& operator=(const RunningRead&) = delete;

 private:
  BufferQueue* queue_;
};

int BufferQueue::read(char* buffer, unsigned int size, unsigned int* readBytes) {
  *readBytes = 0;
  Lock queue(*this);
  return readLocked(buffer, size, readBytes, nullptr);
}

int BufferQueue::read(char* buffer, unsigned int size, unsigned int* readBytes,
                      unsigned long long number) {
  *readBytes = 0;
  Lock queue(*this);
  return readLocked(buffer, size, readBytes, &number);
}

int BufferQueue::readLocked(char* buffer, unsigned int size, unsigned int* readBytes,
                            const unsigned long long* number) {
  forgetBrokenRead();
  seekRequested = false;
  // What the first connection meets is the result of the read that opened it, however soon it
  // comes.
  const bool ended = needExit();
  const bool opens = !workerStarted && startFirstConnection() && !ended;
  FLUVIA_PAUSE_POINT("BufferQueue::read begun");
  FLUVIA_LOG_AS("read", 2, "read offset:%lld, read size:%d, needExit :%d", readOffset.get(),
                static_cast<int>(size), needExit());
  if (!opens && needExit()) return READ_EXITING;
  if (atEnd(readOffset)) {
    FLUVIA_LOG_AS("read", 2, "EOF !!!!!!!!!");
    return READ_END;
  }
  FLUVIA_PAUSE_POINT("BufferQueue::read before feedLock");
  Lock feed(feedLock);
  bool ok = false;
  {
    const RunningRead running(this, number);
    if (!opens && needExit()) {
      FLUVIA_LOG_AS("read", 0, "read failed in buffer stream status:%d", streamStatus.get());
      return READ_FAILED;
    }
    pace.readBegins(readOffset);
    ok = fill(readOffset, size, buffer, readBytes, FILL_CHOOSE);
    pace.readEnded(readOffset);
  }
  noteRead(buffer, size, *readBytes);
  const bool leftBlocks = writerWaits && readerSteps >= roomWanted;
  if (!ok) {
    if (leftBlocks) feedLock.notifyAll(0);
    FLUVIA_LOG_AS("read", 2, "read fail %d", ok);
    FLUVIA_LOG_AS("read", 2, "readOffset=%lld, read:%lld, read id=%d, wtHead id=%d, wtHead:%lld",
                  readOffset.get(), (*rdTail)->getBeginningSeqNum(), (*rdTail)->getId(),
                  (*wtHead)->getId(), (*wtHead)->getBeginningSeqNum());
    return endReached ? READ_END : readCode();
  }
  FLUVIA_LOG_AS("read", 2, "readcount:%d, readoffset:%lld, filesize:%lld",
                static_cast<int>(*readBytes), readOffset.get(), contentSize.get());
  feed.release();
  // Who is woken finds the lock free.
  if (leftBlocks) feedLock.notifyAll(0);
  FLUVIA_LOG_AS("read", 2, "BufferQueue read ok");
  return READ_OK;
}

void BufferQueue::noteRead(char* buffer, unsigned int size, unsigned int readBytes) {
  if (readBytes != size) {
    FLUVIA_LOG_AS("read", 2, "read ERROR that request:%d != readed:%d, curOffset:%lld, status:%d",
                  static_cast<int>(size), static_cast<int>(readBytes), readOffset.get(),
                  streamStatus.get());
  }
  if (readBytes != 0) {
    dump.read_to_file(readOffset - readBytes, reinterpret_cast<unsigned char*>(buffer), readBytes);
  }
  if (contentSize == 0 && producer != nullptr) contentSize = producer->getContentSize();
}

bool BufferQueue::startFirstConnection() {
  workerStarted = true;
  activeWorkNum = 1;
  Lock feed(feedLock);
  streaming = true;
  if (worker.start(this)) return true;
  streaming = false;
  failStream();
  return false;
}

// Why a fill failed, told by the stream status.
int BufferQueue::readCode() {
  constexpr int kStatusEnd = 8;  // no path sets it; the code is kept
  const int status = streamStatus;
  switch (status) {
    case STATUS_PARTIAL_END:
      return READ_FAILED;
    case STATUS_NOT_FOUND:
      return READ_NOT_FOUND;
    case STATUS_TIMEOUT:
      return READ_TIMEOUT;
    case STATUS_NOT_AVAILABLE:
      return READ_NOT_AVAILABLE;
    case kStatusEnd:
      return READ_END;
    default:
      FLUVIA_LOG_AS("read", 0, "error status that read fail but status is ok %d", status);
      return READ_FAILED;
  }
}

// Copies count bytes from pos on: the block that holds pos first, then block after block. A loop,
// because one call may span the whole resource; each round is one level of the trace lines, which
// are written from the last to the first.
bool BufferQueue::fill(long long pos, unsigned int count, char* buffer, unsigned int* readBytes,
                       int direction) {
  *readBytes = 0;
  readEnd = pos + count;
  if (direction == FILL_CHOOSE) {
    direction = (*rdTail)->isForwarding(pos) ? FILL_FORWARD : FILL_BACKWARD;
  }
  bool backward = direction == FILL_BACKWARD;
  if (backward) {
    bool forwardInstead = false;
    if (!findBackward(pos, &forwardInstead)) {
      *readBytes = takeArrived(count, buffer);
      return false;
    }
    backward = !forwardInstead;
  }
  const bool startedBackward = backward;
  std::vector<unsigned int> rounds;
  unsigned int done = 0;
  bool ok = true;
  for (;; backward = false) {
    const long long at = pos + done;
    unsigned int got = 0;
    ok =
        (backward || findForward(at)) && copyFound(at, count - done, buffer + done, &got, backward);
    done += got;
    if (LOG_LEV >= 2) rounds.push_back(got);
    if (!ok || done >= count || readOffset >= contentSize) break;
  }
  if (!ok) done += takeArrived(count - done, buffer + done);
  if (!ok && endReached && done > 0) ok = true;
  *readBytes = done;
  unsigned int more = 0;
  for (size_t level = rounds.size(); level-- > 1;) {
    more += rounds[level];
    if (level == 1 && startedBackward) {
      FLUVIA_LOG(2, "second fill2 %d, %d", ok, static_cast<int>(more));
    } else {
      FLUVIA_LOG(2, "second fill %d, %d", ok, static_cast<int>(more));
      if (!ok) FLUVIA_LOG(2, "fill ret fail");
    }
  }
  return ok;
}

// Waits on feedLock's condition until what the read still lacks has arrived, at most a few blocks
// of it, or something else than data has come. A reader that keeps up with the transfer waits for
// more than it lacks, but not for long.
void BufferQueue::waitAsReader() {
  readerWants = std::min(readEnd, alignLeft(readOffset) + kWakeDistance);
  const long long much = blockCount / kGatherShare * static_cast<long long>(kBlockSize);
  const bool gather = much > 0 && pace.keepsUp(readOffset, much);
  if (gather) readerWants = std::max(readerWants, readOffset + much);
  if (contentSize > 0) readerWants = std::min(readerWants, contentSize.get());
  readerWaits = true;
  const long long since = monotonicMs();
  if (gather) {
    feedLock.waitFor(kGatherMs);
  } else {
    feedLock.wait(0);
  }
  pace.waited(monotonicMs() - since < kGatherMs);
  readerWaits = false;
}

// Waits on feedLock's condition between two trace lines and tells why the reader goes on.
BufferQueue::Wake BufferQueue::waitForFeed(const char* before, const char* after, long long pos) {
  if (!breakRequested) placeReader();
  // The transfer has ended and waits for a wish that this reader does not have: a stream that
  // cannot seek is only waited for, and nothing more of it will come.
  if (parked && !needFeed && !breakRequested && !needExit()) return Wake::kEnd;
  if (!breakRequested && !needExit()) {
    feedLock.notifyAll(0);
    if (before != nullptr) FLUVIA_LOG_AS("fill", 2, "%s", before);
    readerAsks = needFeed;
    waitAsReader();
    FLUVIA_LOG_AS("fill", 2, "%s", after);
  }
  if (breakRequested) {
    breakRequested = false;
    return Wake::kBroken;
  }
  if (needExit()) return Wake::kExit;
  return atEnd(pos) ? Wake::kEnd : Wake::kLook;
}

// One block on, when pos is not before that one.
bool BufferQueue::stepForward(long long pos) {
  const BlockIt next = std::next(rdTail);
  if (next == blocks.end() || (*next)->isUnused() || pos < (*next)->getBeginningSeqNum()) {
    return false;
  }
  rdTail = next;
  ++readerSteps;
  return true;
}

// One block back, when pos is not behind that one.
bool BufferQueue::stepBackward(long long pos) {
  if (rdTail == blocks.begin()) return false;
  const BlockIt previous = std::prev(rdTail);
  if (pos >= (*previous)->getBeginningSeqNum() + (*previous)->size()) return false;
  rdTail = previous;
  ++readerSteps;
  return true;
}

// Moves rdTail forward to the block that will contain pos, waiting until there is one.
bool BufferQueue::findForward(long long pos) {
  while (!(*rdTail)->willContained(pos)) {
    if (stepForward(pos)) continue;
    if (atEnd(pos)) {
      endReached = true;
      return false;
    }
    FLUVIA_LOG_AS(
        "fill", 2,
        "wait and feeding = true seq=%lld, read:%lld, read id=%d, wtHead id=%d, wtHead:%lld", pos,
        (*rdTail)->getBeginningSeqNum(), (*rdTail)->getId(), (*wtHead)->getId(),
        (*wtHead)->getBeginningSeqNum());
    if (seekable) needFeed = true;
    switch (waitForFeed("wait in fill", "wake up in fill", pos)) {
      case Wake::kBroken:
        FLUVIA_LOG_AS("fill", 2, "break out at fill FORWARD");
        feedLock.notifyAll(0);
        return false;
      case Wake::kExit:
        FLUVIA_LOG_AS("fill", 2, "needexit at fill");
        return false;
      case Wake::kEnd:
        endReached = true;
        return false;
      case Wake::kLook:
        break;
    }
  }
  return true;
}

// Moves rdTail backward to the block that will contain pos, waiting until there is one.
// *forwardInstead: the stream began anew and the data is to be looked for forward.
bool BufferQueue::findBackward(long long pos, bool* forwardInstead) {
  while (!(*rdTail)->willContained(pos)) {
    Wake wake = Wake::kLook;
    const char* broken = nullptr;
    bool inFront = false;
    if (rdTail != blocks.begin()) {
      if (stepBackward(pos)) continue;
      FLUVIA_LOG_AS("fill", 2,
                    "wait in backword finding  readOffset=%lld, read:%lld, read id=%d, wtHead "
                    "id=%d, wtHead:%lld",
                    pos, (*rdTail)->getBeginningSeqNum(), (*rdTail)->getId(), (*wtHead)->getId(),
                    (*wtHead)->getBeginningSeqNum());
      needFeed = true;
      wake = waitForFeed(nullptr, "wake up in fill3", pos);
      broken = "break out at fill BACKWARD";
    } else {
      inFront = true;
      FLUVIA_LOG_AS("fill", 2, "wait in the first block, rd:%lld, offset:%lld",
                    (*rdTail)->getBeginningSeqNum(), pos);
      needFeed = true;
      wake = waitForFeed(nullptr, "wake up in fill BACKWARD", pos);
      broken = "break out fill BACKWARD";
    }
    if (wake == Wake::kBroken) {
      FLUVIA_LOG_AS("fill", 2, "%s", broken);
      feedLock.notifyAll(0);
      return false;
    }
    if (wake == Wake::kEnd) endReached = true;
    if (wake != Wake::kLook) return false;
    if (inFront && !seekable && blocks.front()->getBeginningSeqNum() == 0) {
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

// Copies from the block that was found at rdTail.
bool BufferQueue::copyFound(long long pos, unsigned int count, char* buffer, unsigned int* got,
                            bool backward) {
  if (backward) {
    FLUVIA_LOG_AS("fill", 2, "begin to backward easyFill from %lld, count:%d", pos,
                  static_cast<int>(count));
  } else {
    FLUVIA_LOG_AS("fill", 2, "begin to easyFill from %lld, count:%d", pos, static_cast<int>(count));
  }
  if (rdTail == blocks.end() || *rdTail == nullptr) {
    FLUVIA_LOG_AS("fill", 2, "error!!!!!!!!!!!!!!!!!!");
    dumpBlocks(true);
    return false;
  }
  if (!easyFill(pos, count, buffer, got, false) || needExit()) {
    if (!backward) FLUVIA_LOG_AS("fill", 2, "needExit or ret fail");
    return false;
  }
  if (breakRequested) {
    breakRequested = false;
    FLUVIA_LOG_AS("fill", 2, "%s",
                  backward ? "break out at fill BACKWARD_1" : "break out at fill FORWARD_1");
    feedLock.notifyAll(0);
    return false;
  }
  return true;
}

// Waits until the block at rdTail is the one that will contain pos; without notCheck it has to be.
bool BufferQueue::waitForBlock(long long pos, bool notCheck) {
  while (!(*rdTail)->willContained(pos)) {
    if (!notCheck) {
      FLUVIA_LOG_AS("easyFill", 2, "error, the argument error");
      return false;
    }
    FLUVIA_LOG_AS("easyFill", 2, "not chek branch, wait and feeding = true");
    needFeed = true;
    FLUVIA_LOG_AS("easyFill", 2, "wait in notCheck");
    feedLock.wait(0);
    FLUVIA_LOG_AS("easyFill", 2, "wake up in notCheck");
    if (breakRequested) {
      breakRequested = false;
      feedLock.notifyAll(0);
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
  feedLock.notifyAll(0);
  readerAsks = false;
  if (!breakRequested && !needExit()) waitAsReader();
  FLUVIA_LOG_AS("easyFill", 2, "wake up at easyfill");
}

// Copies from the block at rdTail only, waiting while it is being written.
bool BufferQueue::easyFill(long long pos, unsigned int count, char* buffer, unsigned int* readBytes,
                           bool notCheck) {
  *readBytes = 0;
  if (!(*rdTail)->willContained(pos) && !waitForBlock(pos, notCheck)) return false;
  BufferBlock* block = *rdTail;
  const long long beginning = block->getBeginningSeqNum();
  for (;;) {
    *readBytes += copyOut(count - *readBytes, buffer + *readBytes, pos);
    if (*readBytes == count || atEnd(readOffset)) {
      FLUVIA_LOG(2, "easyFill specail, readOffset:%lld, size:%lld", readOffset.get(),
                 contentSize.get());
      // Learnt since the read began: it has nothing to succeed with.
      endReached = *readBytes == 0 && count != 0;
      return !endReached;
    }
    if (!block->willContained(readOffset)) {
      FLUVIA_LOG(2, "easyFill");
      return true;
    }
    waitInBlock(block);
    if (breakRequested) {
      breakRequested = false;
      FLUVIA_LOG(2, "break out at easyfill");
      feedLock.notifyAll(0);
      return false;
    }
    if (needExit()) {
      FLUVIA_LOG(2, "need exit at easyfill");
      return false;
    }
    if (block->getBeginningSeqNum() != beginning) {
      // The block was placed elsewhere meanwhile: its bytes are not the ones asked for.
      FLUVIA_LOG(2, "error, the argument error");
      return false;
    }
    if (atEnd(readOffset) && !block->isContained(readOffset)) {
      if (*readBytes == 0) endReached = true;
      return *readBytes != 0;
    }
  }
}

// Copies what the block at rdTail holds from readOffset on, and moves on by that much. pos is where
// the copying began.
unsigned int BufferQueue::copyOut(unsigned int count, char* buffer, long long pos) {
  const BufferBlock* block = *rdTail;
  unsigned int got = 0;
  block->out(static_cast<unsigned int>(readOffset - block->getBeginningSeqNum()), buffer, count,
             &got);
  FLUVIA_LOG_AS("easyFill", 2, "output from block%d %d data, begin:%lld, payload:%d, seq = %lld",
                block->getId(), static_cast<int>(got), block->getBeginningSeqNum(),
                static_cast<int>(block->payloadSize()), pos);
  readOffset += got;
  return got;
}

// What has arrived before a read failed is still the reader's: it was not woken for every chunk.
unsigned int BufferQueue::takeArrived(unsigned int count, char* buffer) {
  unsigned int taken = 0;
  while (taken < count) {
    moveReaderTo(readOffset);
    if (!(*rdTail)->isContained(readOffset)) break;
    taken += copyOut(count - taken, buffer + taken, readOffset);
  }
  return taken;
}

// A reader that begins to wait while nothing streams, is parked or is being restarted would wait
// for ever: it gets a connection of its own.
void BufferQueue::placeReader() {
  const bool may = mayPlace || endedSilently;
  mayPlace = false;
  if (!may || streaming || parked || producer == nullptr || needExit()) return;
  endedSilently = false;
  if ((*rdTail)->isUnused() || (!seekable && readOffset >= (*wtHead)->getBeginningSeqNum())) {
    restartFromWriteHead();
  } else {
    feedReader();
  }
}

bool BufferQueue::seek(long long offset, long long* newOffset) {
  FLUVIA_LOG(2, "Seek in ...");
  Lock queue(*this);
  FLUVIA_LOG(2, "old offset:%lld, wanted offset:%lld", readOffset.get(), offset);
  forgetBrokenRead();
  if (offset < 0 || (contentSize != 0 && contentSize < offset)) {
    *newOffset = readOffset;
    return false;
  }
  readOffset = offset;
  *newOffset = offset;
  seekRequested = true;
  return !needExit();
}

void BufferQueue::breakRead() {
  if (producer != nullptr) producer->setBreak();
  Lock feed(feedLock);
  FLUVIA_LOG(0, "Going to break read");
  if (readRunning) breakRunning();
}

void BufferQueue::breakReads(unsigned long long upTo) {
  if (producer != nullptr) producer->setBreak();
  Lock feed(feedLock);
  FLUVIA_LOG_AS("breakRead", 0, "Going to break read");
  brokenUpTo = std::max(brokenUpTo, upTo);
  if (readRunning && readNumber != nullptr && *readNumber <= upTo) breakRunning();
}

// Breaks the read that runs. Ended by the read, which clears the flag where it leaves or goes.
void BufferQueue::breakRunning() {
  breakRequested = true;
  while (breakRequested) {
    FLUVIA_LOG_AS("breakRead", 0, "bread end request but read is running");
    feedLock.notifyAll(0);
    feedLock.wait(0);
    FLUVIA_LOG_AS("breakRead", 0, "bread read end");
  }
  FLUVIA_LOG_AS("breakRead", 0, "Have broken from reading");
}

void BufferQueue::probe() { probeAs(nullptr); }

void BufferQueue::probe(unsigned long long number) { probeAs(&number); }

void BufferQueue::probeAs(const unsigned long long* number) {
  Lock queue(*this);
  forgetBrokenRead();
  if (contentSize != 0 || needExit()) return;
  const long long offset = readOffset;
  char byte = 0;
  unsigned int got = 0;
  readLocked(&byte, 1, &got, number);
  readOffset = offset;
}

}  // namespace util
