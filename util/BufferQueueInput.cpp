// Stream input: where received bytes go, and when another connection must replace this one.
#include <algorithm>

#include "util/BufferQueue.h"
#include "util/Log.h"

namespace util {

int BufferQueue::streamIn(void* data, unsigned int size, int dataVersion) {
  FeedLock feed(this);
  if (size != 0) retryCount = 0;  // any data ends a sequence of retries
  // As the reader itself would do if every chunk woke it.
  if (wish.asks) needFeed = readerLacksItsBytes();
  const int result = storeChunk(static_cast<unsigned char*>(data), size, dataVersion);
  if (result == 0 && dataVersion == version && !reportsEnd())
    connection.state = StreamConnection::kNone;
  noteService(result);
  const bool wakes = result == 0 || readerCanGoOn();
  if (wakes) noteWoken();
  // The woken thread finds the lock free.
  feed.release();
  if (wakes) feedLock.notifyAll(0);
  return result;
}

// False for a reader whose bytes are buffered although it has not had the lock since: a transfer
// without room would drop its chunk for it and restart. Also false for a reader whose bytes a
// stream that cannot seek will still reach.
bool BufferQueue::readerLacksItsBytes() {
  if (!seekable && readOffset >= (*wtHead)->getBeginningSeqNum()) return false;
  return !holds(readOffset);
}

// Counts the chunks that did not bring a waiting reader closer to its bytes.
void BufferQueue::noteService(int result) {
  const bool served = result == 0 || !wish.asks || comesWithThisConnection(readOffset);
  if (served) {
    wish.unserved = 0;
  } else if (!holds(readOffset)) {
    ++wish.unserved;
  }
}

// Waking a reader costs more than copying a small chunk.
bool BufferQueue::readerCanGoOn() {
  if (!wish.stands()) return false;
  moveReaderTo(readOffset);
  BlockIt block = rdTail;
  if (!(*block)->isContained(readOffset)) return false;
  while ((*block)->end() < wish.until) {
    const BlockIt next = std::next(block);
    if (next == blocks.end() || (*next)->getBeginningSeqNum() != (*block)->end()) return false;
    block = next;
  }
  return true;
}

// True if the transfer runs inside startStreaming: such a producer reports every end with an event.
// A producer with a thread of its own may end without one.
bool BufferQueue::reportsEnd() const { return connecting && connection.isOnThisThread(); }

void BufferQueue::noteStored(unsigned int count) {
  if (count == 0) return;
  connection.stored = true;
  restarts.emptyEnds = 0;
}

// True if the chunk is not needed: of an older version, at the end, or before a restart.
bool BufferQueue::refuses(int dataVersion) {
  const bool stale = dataVersion != version;
  const bool exiting = needExit();
  if (stale || exiting) {
    FLUVIA_LOG_AS("streamIn", 2, "ver = %d, version =%d, needExit = %d", dataVersion, version.get(),
                  exiting);
    // Only without a newer version: that one begins at the write head.
    if (!stale && rdTail != wtHead && (*wtHead)->payloadSize() != kBlockSize) resetBlock(wtHead);
    return true;
  }
  if (!isResetStream()) return false;
  setStatus(STATUS_IDLE);
  FLUVIA_LOG_AS("streamIn", 2, "need reset stream");
  return true;
}

int BufferQueue::storeChunk(unsigned char* data, unsigned int size, int dataVersion) {
  if (refuses(dataVersion)) return 0;
  BufferBlock* first = *wtHead;
  unsigned int stored = first->in(data, size);
  noteStored(stored);
  FLUVIA_LOG_AS(
      "streamIn", 2, "size:%d, sz:%d, rdblock:%d, wtblock:%d, usedSize:%d, begin from:%lld",
      static_cast<int>(size), static_cast<int>(stored), (*rdTail)->getId(), first->getId(),
      static_cast<int>(first->payloadSize()), first->getBeginningSeqNum());
  bool dropped = false;
  while (stored != size) {
    FLUVIA_LOG_AS("streamIn", 2, "sz %d != size %d", static_cast<int>(stored),
                  static_cast<int>(size));
    const Room found = nextBlock(dataVersion);
    if (found == Room::kStop) return 0;
    if (found == Room::kDropped) {
      dropped = true;
      break;
    }
    const unsigned int more = (*wtHead)->in(data + stored, size - stored);
    stored += more;
    noteStored(more);
    FLUVIA_LOG_AS("streamIn", 2, "wtblock:%d, usedSize:%d, rdTail block:%d", (*wtHead)->getId(),
                  static_cast<int>((*wtHead)->payloadSize()), (*rdTail)->getId());
  }
  if (!needFeed) {
    FLUVIA_LOG_AS("streamIn", 2, "end from streamIn");
    return 1;
  }
  return serveReader(first, dropped);
}

// Moves the write head to a free block that begins where the current one ends.
BufferQueue::Room BufferQueue::nextBlock(int dataVersion) {
  const long long next = (*wtHead)->getBeginningSeqNum() + (*wtHead)->size();
  if (runsIntoNextBlock(next)) return Room::kStop;
  BlockIt selected;
  const Room found = findRoom(dataVersion, &selected);
  if (found != Room::kFound) return found;
  if (selected == wtHead) {
    FLUVIA_LOG_AS("streamIn", 2, "ERROR, shouldn't go here");
    dumpBlocks(true);
    resetBlock(wtHead);
    wtHead = rdTail;
    return Room::kStop;
  }
  moveBehindWriteHead(selected, next);
  return Room::kFound;
}

// True if the bytes from next on belong to a block that is already buffered.
bool BufferQueue::runsIntoNextBlock(long long next) {
  const BlockIt after = std::next(wtHead);
  if (after == blocks.end() || (*after)->getBeginningSeqNum() == 0 ||
      (*after)->getBeginningSeqNum() > next) {
    return false;
  }
  FLUVIA_LOG_AS("streamIn", 2, "Server gives more than the client required, stop streaming");
  overDeliveryCancel = true;
  connection.overDelivered = true;
  return true;
}

// Waits for room; begins with a pause if no reader is near the write head.
void BufferQueue::waitForRoom() {
  room = RoomWish();
  room.waits = true;
  room.resumeAt = writeEnd() - keptAhead();
  const bool pauses = readOffset < room.resumeAt;
  if (!pauses || (!waitOnFeed(longestPauseMs) && room.steps == 0 && !room.woken)) {
    // A reader is near, or none reads: the next block that is left is room enough.
    room.resumeAt = 0;
    waitOnFeed();
  }
  room.waits = false;
}

// A transfer without room continues when a reader has fewer bytes than this ahead of it: half of
// the buffer, and a margin for the time that the transfer needs to continue.
long long BufferQueue::keptAhead() const {
  return static_cast<long long>(blockCount) * kBlockSize / 2 +
         std::max(blockCount / kMarginShare, 1) * static_cast<long long>(kBlockSize);
}

// Finds the block to write next, waiting until readers free one. kDropped: meanwhile a reader needs
// data elsewhere, and the rest of the chunk is dropped.
BufferQueue::Room BufferQueue::findRoom(int dataVersion, BlockIt* found) {
  BlockIt selected = selectBlockToWrite(true);
  while (selected == blocks.end()) {
    FLUVIA_LOG_AS("streamIn", 2, "wait in streamIn");
    const BlockIt tail = rdTail;
    waitingFeedRequest = true;
    wakeAll();
    waitForRoom();
    FLUVIA_LOG_AS("streamIn", 2, "wake up  in streamIn");
    if (needExit()) return Room::kStop;
    if (isResetStream()) {
      setStatus(STATUS_IDLE);
      return Room::kStop;
    }
    if (dataVersion != version) return Room::kStop;
    followReader();
    if (needFeed && rdTail == tail && !holds(readOffset)) {
      FLUVIA_LOG_AS("streamIn", 2, "break out while");
      waitingFeedRequest = false;
      FLUVIA_LOG_AS("streamIn", 2, "break 2");
      return Room::kDropped;
    }
    selected = selectBlockToWrite(true);
  }
  *found = selected;
  return Room::kFound;
}

void BufferQueue::moveBehindWriteHead(BlockIt selected, long long beginning) {
  BlockIt position = std::next(wtHead);
  if (position == selected) ++position;
  if (position == blocks.end()) FLUVIA_LOG_AS("streamIn", 2, "EEEEEEEEEEEEEEEEEEEEEEEEEEE");
  blocks.splice(position, blocks, selected);
  FLUVIA_LOG_AS("streamIn", 2, "insert");
  wtHead = selected;
  FLUVIA_LOG_AS("streamIn", 2, "move another block to the tail");
  (*wtHead)->setBeginningSeqNum(beginning, true);
  if (position != blocks.end() && !checkErrorInsert(position)) {
    FLUVIA_LOG_AS("streamIn", 2, "error insert block");
  }
  FLUVIA_LOG_AS("streamIn", 2, "new block %d begin from %lld", (*wtHead)->getId(), beginning);
}

// A connection that dropped bytes must not continue as if nothing was missing.
int BufferQueue::goOn(bool dropped) {
  if (!dropped) return 1;
  if (!announceRestart()) return 0;
  restartFromWriteHead();
  return 0;
}

// A reader waits for data: decides whether this connection delivers it. first is the block in which
// the chunk began.
int BufferQueue::serveReader(BufferBlock* first, bool dropped) {
  const long long headBegin = (*wtHead)->getBeginningSeqNum();
  if (!seekable) {
    FLUVIA_LOG_AS("streamIn", 2, "readOffset: %lld, head seq: %lld, block seq: %lld\n",
                  readOffset.get(), headBegin, first->getBeginningSeqNum());
    if (readOffset >= headBegin) return goOn(dropped);
    if (!first->isContained(readOffset)) {
      flushAndRestart();
      return 0;
    }
    FLUVIA_LOG_AS("streamIn", 2, "the retrived data contains read data\n");
  }
  return readOffset < headBegin ? serveReaderBehind(dropped) : serveReaderAhead(dropped);
}

int BufferQueue::serveReaderBehind(bool dropped) {
  followReader();
  const long long tailBegin = (*rdTail)->getBeginningSeqNum();
  if (readOffset == tailBegin) {
    FLUVIA_LOG_AS("streamIn", 2, " last line ");
    return goOn(dropped);
  }
  if (!needToFeed()) {
    FLUVIA_LOG_AS(
        "streamIn", 2,
        "needn't feed again2 readOffset=%lld, read:%lld, read id=%d, wtHead id=%d, wtHead:%lld",
        readOffset.get(), tailBegin, (*rdTail)->getId(), (*wtHead)->getId(),
        (*wtHead)->getBeginningSeqNum());
    return goOn(dropped);
  }
  BlockIt endIt = rdTail;
  if (readOffset < tailBegin) {
    FLUVIA_LOG_AS("streamIn", 2, "(*rdTail):%lld > readOffset:%lld, rangeBegin:%lld", tailBegin,
                  readOffset.get(), streamFrom);
  } else {
    ++endIt;
    if (endIt == blocks.end() || (*endIt)->getBeginningSeqNum() == tailBegin + (*rdTail)->size()) {
      FLUVIA_LOG_AS("streamIn", 2, " last line ");
      return goOn(dropped);
    }
  }
  if (!announceRestart()) return 0;
  if (fragmentOrNext(getReadPosition(), endIt)) {
    FLUVIA_LOG_AS("streamIn", 2, "after fragmentStreaming, rdTail is %d", (*rdTail)->getId());
  } else {
    if (readOffset < tailBegin) {
      FLUVIA_LOG_AS("streamIn", 2, "fragmentStreaming failed, needn't do it");
    } else {
      FLUVIA_LOG_AS("streamIn", 2, "fragmentStreaming failed, error!!!!!!!!!!!!!!");
    }
    failPlacement();
  }
  return 0;
}

int BufferQueue::serveReaderAhead(bool dropped) {
  BufferBlock* head = *wtHead;
  const long long headBegin = head->getBeginningSeqNum();
  // The reader has not run yet: its data has just been stored.
  if (dropped && head->isContained(readOffset)) return goOn(dropped);
  FLUVIA_LOG_AS("streamIn", 2, "rdTail:%d, %lld, wtHead:%d offset:%lld", (*rdTail)->getId(),
                (*rdTail)->getBeginningSeqNum(), head->getId(), readOffset.get());
  if (!dropped &&
      (head->willContained(readOffset) || readOffset - head->end() <= kReadAheadMargin)) {
    FLUVIA_LOG_AS("streamIn", 2, "rdTail:%lld,  wtHead:%lld", (*rdTail)->getBeginningSeqNum(),
                  headBegin);
    needFeed = false;
    return 1;
  }
  FLUVIA_LOG_AS("streamIn", 2, "never will be filled in this block [[[ %lld, %lld",
                readOffset.get(), headBegin);
  if (!dropped && getReadPosition() - headBegin <= kReadAheadMargin) {
    FLUVIA_LOG_AS("streamIn", 2, "closed to current location [[[2");
    return 1;
  }
  return restartAhead();
}

// Chooses the block at which the stream that the reader needs must stop, and restarts it.
int BufferQueue::restartAhead() {
  const long long tailBegin = (*rdTail)->getBeginningSeqNum();
  BlockIt chosen;
  if (readOffset < tailBegin) {
    chosen = rdTail;
  } else if (readOffset > tailBegin && tailBegin >= (*wtHead)->getBeginningSeqNum()) {
    chosen = std::next(rdTail);
  } else {
    chosen = std::next(wtHead);
  }
  if (chosen == blocks.end()) {
    FLUVIA_LOG_AS("streamIn", 2, "fra1, %d ~ to end", (*rdTail)->getId());
  } else {
    FLUVIA_LOG_AS("streamIn", 2, "fra1, %d ~ %d", (*rdTail)->getId(), idOf(chosen));
  }
  if (!announceRestart()) return 0;
  if (fragmentOrNext(getReadPosition(), chosen)) {
    FLUVIA_LOG_AS("streamIn", 2, "after fragmentStreaming, rdTail is %d", (*rdTail)->getId());
  } else {
    FLUVIA_LOG_AS("streamIn", 2, "fragmentStreaming failed");
    failPlacement();
  }
  return 0;
}

bool BufferQueue::cacheHeadToCheck(unsigned char* data, unsigned int size) {
  FeedLock feed(this);
  const unsigned int length = static_cast<unsigned int>(newHeadCache.length);
  const unsigned int count = std::min(kBlockSize - length, size);
  std::copy(data, data + count, newHeadCache.data + length);
  newHeadCache.length += static_cast<int>(count);
  if (newHeadCache.length < static_cast<int>(kBlockSize)) return true;
  headChecking = false;
  bool different = true;
  if (headCache.length == static_cast<int>(kBlockSize)) {
    different = !std::equal(headCache.data, headCache.data + kBlockSize, newHeadCache.data);
  }
  headCache = newHeadCache;
  FLUVIA_LOG(1, "have compared the new connection is different with previous connection");
  if (!different) {
    FLUVIA_LOG(1,
               "The new file part is the same as the old file, begin to terminate the connection");
    FLUVIA_LOG(1, "file size is realized again and changed from %lld to %lld", contentSize.get(),
               writeEnd());
    contentSize = writeEnd();
  }
  return different;
}

}  // namespace util
