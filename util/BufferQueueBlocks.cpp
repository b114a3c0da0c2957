// The block list: which block a stream writes next, how a block is placed at another offset, what
// is buffered. Every move is a splice, so that iterators keep designating the same block.
#include "util/BufferQueue.h"
#include "util/Log.h"

namespace util {

BufferQueue::BlockIt BufferQueue::selectBlockToWrite(bool feeding) {
  const BlockIt back = std::prev(blocks.end());
  if ((*back)->isUnused()) {
    FLUVIA_LOG(2, "select unused block");
    return back;
  }
  const BlockIt front = blocks.begin();
  if (rdTail == front) {
    FLUVIA_LOG(2, "select block %d", (*back)->getId());
    if (feeding && back == wtHead) {
      FLUVIA_LOG(2, "block is in writing %d and buffer isn't in feeding status", (*back)->getId());
      return blocks.end();
    }
    return back;
  }
  if (!(feeding && wtHead == front)) {
    FLUVIA_LOG(2, "rdtail is not begin, block %d", (*front)->getId());
    return front;
  }
  if (rdTail != back) return back;
  FLUVIA_LOG(2, "error !!!!!! write point at tail but read point at head");
  return blocks.end();
}

bool BufferQueue::resetBlock(BlockIt& it) {
  (*it)->setBeginningSeqNum(0, true);
  blocks.splice(blocks.end(), blocks, it);
  return true;
}

void BufferQueue::flushBuffer(BlockIt& it) {
  for (BlockIt walk = it; walk != blocks.end() && (*walk)->getBeginningSeqNum() != 0; ++walk) {
    (*walk)->setBeginningSeqNum(0, true);
  }
}

bool BufferQueue::checkErrorInsert(BlockIt& it) {
  const long long beginning = (*it)->getBeginningSeqNum();
  if (it != blocks.begin()) {
    if ((*std::prev(it))->getBeginningSeqNum() < beginning) return true;
    FLUVIA_LOG(2, "inserted one is id:%d, %lld", (*it)->getId(), beginning);
    FLUVIA_LOG(2, "rdTail:%d, wtHead:%d", (*rdTail)->getId(), (*wtHead)->getId());
  } else {
    const BlockIt next = std::next(it);
    if (next == blocks.end() || (*next)->getBeginningSeqNum() == 0 ||
        (*next)->getBeginningSeqNum() > beginning) {
      return true;
    }
    FLUVIA_LOG(2, "inserted one is id:%d, %lld", (*it)->getId(), beginning);
  }
  dumpBlocks(true);
  return false;
}

void BufferQueue::dumpBuffer(bool all) {
  FeedLock feed(this);
  if (initialized && !blocks.empty()) dumpBlocks(all);
}

void BufferQueue::dumpBlocks(bool all) {
  if (LOG_LEV < 3) return;
  FLUVIA_LOG_AS("dumpBuffer", 3, "begin to dump buffer");
  FLUVIA_LOG_AS("dumpBuffer", 3, "------------------------------\n");
  FLUVIA_LOG_AS("dumpBuffer", 3,
                "readOffset=%lld, read:%lld, read id=%d, wtHead id=%d, wtHead:%lld",
                readOffset.get(), (*rdTail)->getBeginningSeqNum(), (*rdTail)->getId(),
                (*wtHead)->getId(), (*wtHead)->getBeginningSeqNum());
  for (const BufferBlock* block : blocks) {
    if (block->getBeginningSeqNum() == 0 && !all) continue;
    FLUVIA_LOG_AS("dumpBuffer", 3, "s %2d: %9lld ~ %9lld\n", block->getId(),
                  block->getBeginningSeqNum(), block->end());
  }
  FLUVIA_LOG_AS("dumpBuffer", 3, "------------------------------\n");
}

// Empties a write head's block that is not full. If the reader is in it, returns it instead, to be
// used for the new place; *direct: it stays where it is.
BufferQueue::BlockIt BufferQueue::leaveWriteHead(long long from, BlockIt* endIt, bool* direct) {
  BufferBlock* head = *wtHead;
  if (head->payloadSize() == kBlockSize || head->end() >= contentSize) return blocks.end();
  if (wtHead != rdTail) {
    if (wtHead == *endIt) {
      FLUVIA_LOG_AS("fragmentStreaming", 2, "increase endIt");
      ++*endIt;
    }
    FLUVIA_LOG_AS("fragmentStreaming", 2, "reset wtHead:%d, =>%d", head->getId(),
                  static_cast<int>(head->payloadSize()));
    resetBlock(wtHead);
    return blocks.end();
  }
  FLUVIA_LOG_AS("fragmentStreaming", 2, "directly use current block to fragmentStreaming");
  if (head->willContained(from)) {
    FLUVIA_LOG_AS("fragmentStreaming", 2, "directly use current block to fragmentStreaming");
    *direct = true;
  }
  return wtHead;
}

// Places one block for a stream that starts at from and must stop at the block endIt, or at the end
// of the resource if endIt is the end of the list. endIt is the caller's own copy.
bool BufferQueue::fragmentStreaming(long long from, BlockIt& endIt) {
  FLUVIA_LOG(2, "fragment from %lld, %d", from, idOf(endIt));
  bool direct = false;
  BlockIt selected = leaveWriteHead(from, &endIt, &direct);
  if (selected == blocks.end() && !placeSelected(from, endIt, &selected)) return false;

  const long long seq = alignLeft(from);
  if (seq == -1) {
    FLUVIA_LOG(2, "error !!");
    dumpBlocks(true);
    return false;
  }
  if (endIt != blocks.end() && (*endIt)->getBeginningSeqNum() != 0) {
    FLUVIA_LOG(2, "seq = %lld, from = %lld, end = %lld, endid = %d", seq, from,
               (*endIt)->getBeginningSeqNum(), idOf(endIt));
    streamLength = (*endIt)->getBeginningSeqNum() - seq;
  } else {
    FLUVIA_LOG(2, "seq = %lld, from = %lld, endit = %d, inserted:%d,  is just the buffer end", seq,
               from, idOf(endIt), idOf(selected));
    streamLength = 0;
  }
  if (!direct) (*selected)->setBeginningSeqNum(seq, true);
  if (!checkErrorInsert(selected)) FLUVIA_LOG(2, "error insert block");
  wtHead = selected;
  FLUVIA_LOG(2, "reset stream2");
  streamFrom = writeEnd();
  // The blocks are no longer one stretch that ends at the write head.
  gapDetected = 1;
  resetStreaming();
  return true;
}

// Selects a block and moves it, emptied, just before endIt. False if none is available there.
bool BufferQueue::placeSelected(long long from, BlockIt endIt, BlockIt* selected) {
  const BlockIt chosen = selectBlockToWrite(false);
  const bool chosenIsEnd = chosen != blocks.end() && chosen == endIt;
  if (chosenIsEnd && !(*endIt)->isUnused()) {
    FLUVIA_LOG_AS("fragmentStreaming", 2, "the select block is the endIt, fragment is canceled");
    dumpBlocks(false);
    return false;
  }
  FLUVIA_LOG_AS("fragmentStreaming", 2, "from:%lld, endit:%d", from, idOf(endIt));
  if (chosen == blocks.end()) {
    FLUVIA_LOG_AS("fragmentStreaming", 2, "error !");
    return false;
  }
  if (endIt != blocks.end() && (*endIt)->getBeginningSeqNum() != 0 &&
      from >= (*endIt)->getBeginningSeqNum()) {
    FLUVIA_LOG_AS("fragmentStreaming", 2, "error, from:%lld, endit:%lld", from,
                  (*endIt)->getBeginningSeqNum());
    dumpBlocks(true);
    return false;
  }
  if (!chosenIsEnd) {
    (*chosen)->setBeginningSeqNum(0, true);
    blocks.splice(endIt, blocks, chosen);
    FLUVIA_LOG_AS("fragmentStreaming", 2, "insert1");
    FLUVIA_LOG_AS("fragmentStreaming", 2, "wTemp :%d", (*chosen)->getId());
  }
  *selected = chosen;
  return true;
}

// fragmentStreaming, retried with the block after endIt: with few blocks endIt itself may be the
// only one that can be selected.
bool BufferQueue::fragmentOrNext(long long from, BlockIt endIt) {
  if (fragmentStreaming(from, endIt)) return true;
  if (endIt == blocks.end()) return false;
  ++endIt;
  return fragmentStreaming(from, endIt);
}

// No block could be placed for the waiting reader: its read fails, and the restart task ends the
// transfer that waits for it.
void BufferQueue::failPlacement() {
  failStream();
  queueRestartTask();
}

// Restarts a stream that cannot seek from its beginning into an empty buffer.
bool BufferQueue::flushAndRestart() {
  if (blocks.empty()) {
    FLUVIA_LOG_AS("streamIn", 2, "error!!!!");
    return false;
  }
  BlockIt front = blocks.begin();
  (*front)->setBeginningSeqNum(0, true);
  BlockIt second = std::next(front);
  flushBuffer(second);
  wtHead = front;
  rdTail = front;
  needFeed = false;
  streamFrom = 0;
  streamLength = 0;
  FLUVIA_LOG_AS("streamIn", 2, "reconnecting connection/stream");
  resetStreaming();
  return true;
}

long long BufferQueue::getBufferedSize(long long offset) {
  FeedLock feed(this);
  if (!initialized || blocks.empty()) return 0;
  BlockIt start = rdTail;
  if ((*start)->isUnused() || !(*start)->willContained(offset)) {
    for (start = blocks.begin(); start != blocks.end(); ++start) {
      if (!(*start)->isUnused() && (*start)->willContained(offset)) break;
    }
    if (start == blocks.end()) return 0;
  }
  BlockIt last = wtHead;
  if (gapDetected != 0) {
    for (last = start;; ++last) {
      const BlockIt next = std::next(last);
      if (next == blocks.end()) {
        // Only a stretch that ends at the write head may be measured by it from now on.
        if (last == wtHead) gapDetected = 0;
        break;
      }
      if ((*next)->getBeginningSeqNum() != (*last)->end()) break;
    }
  }
  return (*last)->end() - offset;
}

bool BufferQueue::comesNext(long long offset) {
  FeedLock feed(this);
  if (!initialized || blocks.empty()) return false;
  return comesWithThisConnection(offset);
}

void BufferQueue::expectReader(long long offset) {
  FeedLock feed(this);
  if (!initialized || readRunning) return;
  for (BlockIt it = blocks.begin(); it != blocks.end(); ++it) {
    if ((*it)->isUnused() || !(*it)->isContained(offset)) continue;
    if (it == rdTail) return;
    rdTail = it;
    // Counts as a step of a reader: a transfer without room may have some now.
    ++room.steps;
    if (room.isMet(offset)) wakeAll();
    return;
  }
}

long long BufferQueue::getMiniBlockOffset() {
  FeedLock feed(this);
  FLUVIA_LOG(2, "BufferQueue: return begin buffer seq !!");
  return blocks.empty() ? 0 : blocks.front()->getBeginningSeqNum();
}

}  // namespace util
