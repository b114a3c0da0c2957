// Stream events and recovery.
#include "util/BufferQueue.h"
#include "util/Log.h"
#include "util/PausePoint.h"

namespace util {

void BufferQueue::notifyStreamException(int event) {
  FeedLock feed(this);
  const int begun = connection.version;
  FLUVIA_LOG(0, "stream event %d", event);
  if (event != STREAM_NORMAL && reportsEnd()) connection.endReported = true;
  if (needExit()) {
    wakeAll();
    FLUVIA_LOG(1, "request exit by user");
  } else if (isResetStream()) {
    setStatus(STATUS_IDLE);
    wakeAll();
    return;  // the restart that set the status is still to come
  } else if (event == STREAM_CANCELED && !breakRequested && connection.overDelivered) {
    connection.overDelivered = false;
    overDeliveryCancel = false;
    wakeAll();
    feed.release();
    FLUVIA_LOG(0, "manually translate cancel action to partition end action");
    notifyStreamException(EVENT_STREAM_PARTIAL_END);
    return;
  } else {
    handleEvent(event);
  }
  // If no newer version was announced or begun meanwhile, nothing more comes after this connection.
  const bool ends = event > STREAM_NORMAL && event <= STREAM_CANCELED;
  const bool newer =
      connection.state == StreamConnection::kAnnounced || connection.version != begun;
  if (ends && !newer) connection.state = StreamConnection::kNone;
}

void BufferQueue::handleEvent(int event) {
  switch (event) {
    case STREAM_NORMAL:
      onNormal();
      break;
    case STREAM_ERROR:
      onError();
      break;
    case STREAM_DEAD:
      onDead();
      break;
    case EVENT_STREAM_PARTIAL_END:
      partialEnd();
      break;
    case STREAM_TIMEOUT:
      onTimeout();
      break;
    case STREAM_FILE_NOT_FOUND:
      setStatus(STATUS_NOT_FOUND);
      FLUVIA_LOG_AS("notifyStreamException", -4, "File not found");
      wakeAll();
      break;
    case STREAM_NOT_AVAILABLE:
      setStatus(STATUS_NOT_AVAILABLE);
      FLUVIA_LOG_AS("notifyStreamException", 0, "retry finished in not available error");
      wakeAll();
      break;
    case STREAM_CANCELED:
      onCanceled();
      break;
    default:
      wakeAll();
      FLUVIA_LOG_AS("notifyStreamException", 0,
                    "error !!! event hasn't been handled, canceled is:%d", STREAM_CANCELED);
  }
}

void BufferQueue::onNormal() {
  if (streamStatus == STATUS_IDLE || contentSize == 0) {
    contentSize = producer->getContentSize();
    seekable = producer->isRandomAccess();
    FLUVIA_LOG_AS("notifyStreamException", 0, "STREAM_NORMAL seekable = %d, totalSize:%lld",
                  seekable.get(), contentSize.get());
    if (!seekable) {
      headCache = HeadCache();
      newHeadCache = HeadCache();
    }
  }
  setStatus(STATUS_NORMAL);
  wakeAll();
}

void BufferQueue::onError() {
  ++retryCount;
  setStatus(STATUS_ERROR);
  if (retryCount >= 2) {
    FLUVIA_LOG_AS("notifyStreamException", -4, "retry finished in not available error");
    wakeAll();
    return;
  }
  wakeAll();
  delayNextConnection = true;
  if (everythingArrived()) {
    continueAfterEnd();  // a restart would ask past the end
    return;
  }
  FLUVIA_LOG_AS("notifyStreamException", -4, "reset cause of STREAM_ERROR");
  restartFromWriteHead();
}

void BufferQueue::onTimeout() {
  FLUVIA_LOG_AS("notifyStreamException", 0,
                "begin to delay 1 second before re-connection in timeout");
  setStatus(STATUS_TIMEOUT);
  delayNextConnection = true;
  ++retryCount;
  if (retryCount >= 2) {
    FLUVIA_LOG_AS("notifyStreamException", -4, "retry finished in timeout");
    wakeAll();
    return;
  }
  wakeAll();
  if (everythingArrived()) {
    continueAfterEnd();
    return;
  }
  FLUVIA_LOG_AS("notifyStreamException", -4, "reset stream cause of timeout");
  restartFromWriteHead();
}

void BufferQueue::onDead() {
  if (everythingArrived()) {
    wakeAll();
    continueAfterEnd();
    return;
  }
  FLUVIA_LOG_AS("notifyStreamException", 0, "reset cause of STREAM_DEAD");
  wakeAll();
  restartFromWriteHead();
}

void BufferQueue::onCanceled() {
  wakeAll();
  if (breakRequested) {
    setStatus(STATUS_RELEASED);
    FLUVIA_LOG_AS("notifyStreamException", 0, "cancel and go another connection");
    return;
  }
  FLUVIA_LOG_AS("notifyStreamException", 0, "cancel without continuing");
}

void BufferQueue::partialEnd() {
  FLUVIA_LOG_AS("notifyStreamException", 0, "[QV]get EVENT_STREAM_PARTIAL_END, now size: %lld",
                contentSize.get());
  const bool unknown = contentSize == -1 || contentSize == 0;
  const bool endless = contentSize == UNKNOWN_CONTENT_SIZE && !volatileContent;
  if (unknown || endless) {
    const long long learnt = producer->getContentSize();
    if (learnt != 0 && (unknown || learnt != UNKNOWN_CONTENT_SIZE)) {
      contentSize = learnt;
      FLUVIA_LOG_AS("notifyStreamException", 0, "setFileSize: %lld", learnt);
    }
  }
  continueAfterEnd();
}

// The connection has delivered its range: restarts where bytes are missing, else waits until a
// reader needs some.
void BufferQueue::continueAfterEnd() {
  // Does not use activeWorkNum: a restart task that finds its version already begun only decrements
  // it, and no connection follows.
  if (connection.state == StreamConnection::kAnnounced) {
    FLUVIA_LOG_AS("notifyStreamException", 0, "another connection is in constructing");
    wakeAll();
    return;
  }
  setStatus(STATUS_PARTIAL_END);
  wakeAll();
  if (writeEnd() >= contentSize) {
    if (contentSize == 0) {
      if (emptyEndIsFinal()) return;
      FLUVIA_LOG_AS("notifyStreamException", 0,
                    "reset stream!!! occur connection error when read first data");
      if (connection.stored) streamFrom = writeEnd();
      resetStreaming();
      return;
    }
  } else if (continueInGap()) {
    return;
  }
  FLUVIA_LOG_AS("notifyStreamException", 0, "no need to continue another stream for fragment");
  parkUntilFed();
}

// Limits requests to a server that closes every connection without a byte: the second such end in a
// row is final.
bool BufferQueue::emptyEndIsFinal() {
  if (connection.stored) return false;
  if (++restarts.emptyEnds < 2) return false;
  FLUVIA_LOG_AS("notifyStreamException", -4, "retry finished in not available error");
  failStream();
  return true;
}

// Bytes are missing behind the write head. True if the event is handled.
bool BufferQueue::continueInGap() {
  if (!seekable && !volatileContent) {
    if (emptyEndIsFinal()) return true;
    FLUVIA_LOG_AS("notifyStreamException", 0,
                  "reset stream!!! in a unseekable file which has disconnected normally");
    wakeAll();
    restartFromWriteHead();
    return true;
  }
  if (std::next(wtHead) == blocks.end()) {
    if (emptyEndIsFinal()) return true;
    delayNextConnection = true;
    streamFrom = writeEnd();
    FLUVIA_LOG_AS("notifyStreamException", 0, "reset streaming 10");
    delay(1);  // zero whole seconds, intentional
    resetStreaming();
    return true;
  }
  return walkForGap();
}

// Walks the blocks behind the write head and fills the first gap between them.
bool BufferQueue::walkForGap() {
  BlockIt previous = wtHead;
  for (BlockIt current = std::next(wtHead); current != blocks.end(); ++current) {
    FLUVIA_LOG_AS("notifyStreamException", 0, "BLOCK: %d, %lld, %d", (*current)->getId(),
                  (*current)->getBeginningSeqNum(), static_cast<int>((*current)->payloadSize()));
    if ((*previous)->payloadSize() != kBlockSize && (*previous)->end() < contentSize) {
      if (emptyEndIsFinal()) return true;
      delayNextConnection = true;
      FLUVIA_LOG_AS("notifyStreamException", 0, "fragmentStreaming && ");
      refill(previous, current);
      return true;
    }
    if ((*current)->payloadSize() == 0) break;
    const long long gap = (*previous)->getBeginningSeqNum() + (*previous)->size();
    if ((*current)->getBeginningSeqNum() != gap) {
      if (emptyEndIsFinal()) return true;
      wtHead = current;
      FLUVIA_LOG_AS("notifyStreamException", 0, "begin to fragment streaming");
      BlockIt endIt = current;
      if (fragmentStreaming(gap, endIt)) return true;
      FLUVIA_LOG_AS("notifyStreamException", 0, "fragmentStreaming failed");
      break;
    }
    previous = current;
  }
  return false;
}

// Streams a block again whose connection ended before it was full: from its beginning, or, if the
// last restart was for the same block, from where it ends now. Otherwise connections that all end
// before a block is full would never fill it.
void BufferQueue::refill(BlockIt block, BlockIt next) {
  const long long beginning = (*block)->getBeginningSeqNum();
  if (block == wtHead && beginning == restarts.refilled) {
    streamFrom = writeEnd();
    const long long until = (*next)->getBeginningSeqNum();
    streamLength = until > streamFrom ? until - streamFrom : 0;
    gapDetected = 1;
    resetStreaming();
  } else {
    BlockIt endIt = next;
    if (!fragmentStreaming(beginning, endIt)) {
      FLUVIA_LOG_AS("notifyStreamException", 0, "errorrrrrrrrrrrrrrrrrrrr");
    }
  }
  restarts.refilled = beginning;
}

// Holds the transfer thread until a reader needs data that is not buffered, then places it.
void BufferQueue::parkUntilFed() {
  const int parkedVersion = version;
  restarts.emptyEnds = 0;
  connection.state = StreamConnection::kParked;
  while (!needToFeed()) {
    if (!parkOnce(parkedVersion)) return;
  }
  needFeed = false;
  waitingFeedRequest = false;
  FLUVIA_LOG_AS("notifyStreamException", 0,
                "wake up for new feeding request, rd:%lld , offset:%lld",
                (*rdTail)->getBeginningSeqNum(), readOffset.get());
  feedReader();
}

// One wait of the parked thread. False if the thread must leave: the queue exits or is reset, or
// another thread has announced a newer version, which needs this thread.
bool BufferQueue::parkOnce(int parkedVersion) {
  FLUVIA_LOG_AS("notifyStreamException", 0,
                "Read end of file and notify all other thread to execute");
  wakeAll();
  FLUVIA_LOG_AS("notifyStreamException", 0, "wait for new feeding request");
  if (feedWaitCount < 5) {
    ++feedWaitCount;
  } else {
    dumpBlocks(true);
    feedWaitCount = 0;
  }
  waitingFeedRequest = true;
  waitOnFeed();
  if (needExit()) return false;
  if (isResetStream()) {
    FLUVIA_LOG_AS("notifyStreamException", 0, "reset stream by timer monitor");
    setStatus(STATUS_IDLE);
    return false;
  }
  return version == parkedVersion;
}

// Restarts the stream at the data that the reader needs.
void BufferQueue::feedReader() {
  if (!seekable) {
    flushAndRestart();
    return;
  }
  BlockIt endIt = rdTail;
  if ((*rdTail)->getBeginningSeqNum() < readOffset) ++endIt;
  if (fragmentOrNext(getReadPosition(), endIt)) {
    FLUVIA_LOG_AS("notifyStreamException", 0, "after fragmentStreaming, rdTail is %d",
                  (*rdTail)->getId());
  } else {
    FLUVIA_LOG_AS("notifyStreamException", 0, " fragmentStreaming failed");
    failPlacement();
  }
}

bool BufferQueue::needToFeed() {
  if (readOffset >= contentSize || !needFeed) return false;
  followReader();
  const BufferBlock* tail = *rdTail;
  if (readOffset >= tail->getBeginningSeqNum()) {
    if (tail->isContained(readOffset)) return false;
    const BlockIt next = std::next(rdTail);
    if (next == blocks.end()) {
      FLUVIA_LOG(2, "feeding5");
      return true;
    }
    if ((*next)->getBeginningSeqNum() == 0) {
      FLUVIA_LOG(2, "feeding3");
      return true;
    }
    if (tail->end() == (*next)->getBeginningSeqNum()) return false;
    gapDetected = 1;
    FLUVIA_LOG(2, "feeding4");
    return true;
  }
  if (rdTail == blocks.begin()) {
    FLUVIA_LOG(2, "feeding1");
    return true;
  }
  if ((*std::prev(rdTail))->end() == tail->getBeginningSeqNum()) return false;
  gapDetected = 1;
  FLUVIA_LOG(2, "feeding2");
  return true;
}

void BufferQueue::feedManually() {
  FeedLock feed(this);
  const bool exiting = needExit();
  if (!needFeed || exiting || streamStatus == STATUS_IDLE) {
    FLUVIA_LOG(2, "no need to feed");
    return;
  }
  FLUVIA_LOG(2, "begin to fix connection");
  setStatus(STATUS_RESET);
  const long long beginning = (*wtHead)->getBeginningSeqNum();
  (*wtHead)->setBeginningSeqNum(beginning, true);  // it is streamed again from its first byte
  streamFrom = beginning;
  resetStreaming();
  wakeAll();
}

}  // namespace util
