// Reading and seeking.
#include <algorithm>
#include <vector>

#include "util/BufferQueue.h"
#include "util/Log.h"
#include "util/PausePoint.h"
#include "util/Results.h"

namespace util {

namespace {

// The directions in which fill() searches for its data.
enum Direction { FILL_CHOOSE = 0, FILL_FORWARD = 1, FILL_BACKWARD = 2 };

// The trace lines of a fill. Each copied block is one level, and levels are logged from the last to
// the first.
class FillTrace {
 public:
  explicit FillTrace(bool backward) : startedBackward_(backward) {}
  void add(unsigned int bytes) {
    if (LOG_LEV >= 2) rounds_.push_back(bytes);
  }
  void write(bool ok) const {
    if (rounds_.size() > 1) writeLines(ok);
  }

 private:
  void writeLines(bool ok) const {
    unsigned int more = 0;
    for (size_t level = rounds_.size(); level-- > 1;) {
      more += rounds_[level];
      if (level == 1 && startedBackward_) {
        FLUVIA_LOG_AS("fill", 2, "second fill2 %d, %d", ok, static_cast<int>(more));
      } else {
        FLUVIA_LOG_AS("fill", 2, "second fill %d, %d", ok, static_cast<int>(more));
        if (!ok) FLUVIA_LOG_AS("fill", 2, "fill ret fail");
      }
    }
  }

  const bool startedBackward_;
  std::vector<unsigned int> rounds_;
};

}  // namespace

class BufferQueue::RunningRead {
 public:
  RunningRead(BufferQueue* queue, const unsigned long long* number) REQUIRES(queue->feedLock)
      : queue_(queue) {
    queue_->readRunning = true;
    queue_->reading = CurrentRead();
    queue_->reading.number = number;
    // An abort that named this read before it came here still applies.
    queue_->breakRequested = number != nullptr && *number <= queue_->brokenUpTo;
  }
  ~RunningRead() NO_THREAD_SAFETY_ANALYSIS {
    // The thread that asked for an abort waits for the end of the read. A read that does not end
    // normally may have left blocks.
    if (queue_->breakRequested || !atItsEnd_) queue_->wakeAll();
    if (!atItsEnd_) queue_->wish = ReaderWish();
    queue_->breakRequested = false;
    queue_->needFeed = false;
    queue_->readRunning = false;
    queue_->reading.number = nullptr;
  }
  RunningRead(const RunningRead&) = delete;
  RunningRead& operator=(const RunningRead&) = delete;

  // The read was not ended by an exception or by the cancellation of its thread.
  void comesToItsEnd() { atItsEnd_ = true; }

 private:
  BufferQueue* queue_;
  bool atItsEnd_ = false;
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
  const bool opens = !workerStarted && opensStream();
  FLUVIA_PAUSE_POINT("BufferQueue::read begun");
  FLUVIA_LOG_AS("read", 2, "read offset:%lld, read size:%d, needExit :%d", readOffset.get(),
                static_cast<int>(size), needExit());
  if (!opens && needExit()) return READ_EXITING;
  if (atEnd(readOffset)) {
    FLUVIA_LOG_AS("read", 2, "EOF !!!!!!!!!");
    return READ_END;
  }
  FLUVIA_PAUSE_POINT("BufferQueue::read before feedLock");
  FeedLock feed(this);
  bool ok = false;
  {
    RunningRead running(this, number);
    if (!opens && needExit()) {
      FLUVIA_LOG_AS("read", 0, "read failed in buffer stream status:%d", streamStatus.get());
      running.comesToItsEnd();
      return READ_FAILED;
    }
    ok = fill(readOffset, size, buffer, readBytes, FILL_CHOOSE);
    running.comesToItsEnd();
  }
  noteRead(buffer, size, *readBytes);
  // Assumes that the next read is like this one.
  const bool leftBlocks = room.isMet(readOffset + size);
  if (leftBlocks) noteWoken();
  if (!ok) return endFailedRead(leftBlocks);
  FLUVIA_LOG_AS("read", 2, "readcount:%d, readoffset:%lld, filesize:%lld",
                static_cast<int>(*readBytes), readOffset.get(), contentSize.get());
  feed.release();
  // The woken thread finds the lock free.
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

// Wakes a transfer that the read has left blocks to. Returns the code of the read.
int BufferQueue::endFailedRead(bool leftBlocks) {
  if (leftBlocks) wakeAll();
  FLUVIA_LOG_AS("read", 2, "read fail %d", false);
  FLUVIA_LOG_AS("read", 2, "readOffset=%lld, read:%lld, read id=%d, wtHead id=%d, wtHead:%lld",
                readOffset.get(), (*rdTail)->getBeginningSeqNum(), (*rdTail)->getId(),
                (*wtHead)->getId(), (*wtHead)->getBeginningSeqNum());
  return reading.endReached ? READ_END : readCode();
}

// For the first read. True if it opens the stream: it then returns the result of the first
// connection, however early that comes.
bool BufferQueue::opensStream() {
  const bool ended = exits();
  return startFirstConnection() && !ended;
}

bool BufferQueue::startFirstConnection() {
  workerStarted = true;
  activeWorkNum = 1;
  FeedLock feed(this);
  connection.state = StreamConnection::kAnnounced;
  if (worker.start(this)) return true;
  connection.state = StreamConnection::kNone;
  failStream();
  return false;
}

// Why a fill failed, by the stream status.
int BufferQueue::readCode() {
  constexpr int kStatusEnd = 8;  // never set; the code is kept
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

// Copies count bytes from pos on, which is readOffset: the block that contains pos first, then
// block after block. A loop, because one call may span the whole resource.
bool BufferQueue::fill(long long pos, unsigned int count, char* buffer, unsigned int* readBytes,
                       int direction) {
  pace.readBegins(pos);
  reading.end = pos + count;
  if (direction == FILL_CHOOSE) {
    direction = (*rdTail)->isForwarding(pos) ? FILL_FORWARD : FILL_BACKWARD;
  }
  bool ok = true;
  bool backward = direction == FILL_BACKWARD;
  if (backward) {
    bool forwardInstead = false;
    ok = findBackward(pos, &forwardInstead);
    backward = !forwardInstead;
  }
  FillTrace trace(backward);
  unsigned int done = 0;
  for (; ok; backward = false) {
    const long long at = readOffset;
    unsigned int got = 0;
    ok =
        (backward || findForward(at)) && copyFound(at, count - done, buffer + done, &got, backward);
    done += got;
    trace.add(got);
    if (done >= count || readOffset >= contentSize) break;
  }
  if (!ok && reading.endReached && done > 0) ok = true;
  trace.write(ok);
  if (!ok) done += takeArrived(count - done, buffer + done);
  *readBytes = done;
  pace.readEnded(readOffset);
  return ok;
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
    wakeAll();
    return false;
  }
  return true;
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
      // The end became known after the read began, and the read has no bytes to succeed with.
      reading.endReached = *readBytes == 0 && count != 0;
      return !reading.endReached;
    }
    if (!block->willContained(readOffset)) {
      FLUVIA_LOG(2, "easyFill");
      return true;
    }
    waitInBlock(block);
    if (!readsOnInBlock(block, beginning)) return false;
    if (atEnd(readOffset) && !block->isContained(readOffset)) {
      if (*readBytes == 0) reading.endReached = true;
      return *readBytes != 0;
    }
  }
}

// Whether a read that has waited for the rest of the block may continue there. beginning: where the
// block began before the wait.
bool BufferQueue::readsOnInBlock(const BufferBlock* block, long long beginning) {
  if (breakRequested) {
    breakRequested = false;
    FLUVIA_LOG_AS("easyFill", 2, "break out at easyfill");
    wakeAll();
    return false;
  }
  if (needExit()) {
    FLUVIA_LOG_AS("easyFill", 2, "need exit at easyfill");
    return false;
  }
  if (block->getBeginningSeqNum() != beginning) {
    // The block was placed elsewhere meanwhile: its bytes are not the requested ones.
    FLUVIA_LOG_AS("easyFill", 2, "error, the argument error");
    return false;
  }
  return true;
}

// Copies what is buffered in the block at rdTail from readOffset on, and advances readOffset by
// that. pos is where the copying began.
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

// Delivers the bytes that arrived before the read failed: the reader was not woken for every chunk.
unsigned int BufferQueue::takeArrived(unsigned int count, char* buffer) {
  unsigned int taken = 0;
  while (taken < count) {
    moveReaderTo(readOffset);
    if (!(*rdTail)->isContained(readOffset)) break;
    taken += copyOut(count - taken, buffer + taken, readOffset);
  }
  return taken;
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
  FeedLock feed(this);
  FLUVIA_LOG(0, "Going to break read");
  if (readRunning) breakRunning();
}

void BufferQueue::breakReads(unsigned long long highest) {
  {
    // This comes first: the thread that owns the numbers waits until these reads have left.
    FeedLock feed(this);
    brokenUpTo = std::max(brokenUpTo, highest);
  }
  if (producer != nullptr) producer->setBreak();
  FeedLock feed(this);
  FLUVIA_LOG_AS("breakRead", 0, "Going to break read");
  if (readRunning && reading.number != nullptr && *reading.number <= highest) breakRunning();
}

// Aborts the running read. The read clears the flag when it notices the abort, or at its end.
void BufferQueue::breakRunning() {
  breakRequested = true;
  while (breakRequested) {
    FLUVIA_LOG_AS("breakRead", 0, "bread end request but read is running");
    wakeAll();
    waitOnFeed();
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
