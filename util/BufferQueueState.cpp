// Waiting, waking, and the invariants that hold whenever feedLock is free.
#include <cstdio>
#include <cstdlib>

#include "util/BufferQueue.h"

namespace util {

void BufferQueue::waitOnFeed() {
  checkInvariants();
  feedLock.wait(0);
}

bool BufferQueue::waitOnFeed(int milliseconds) {
  checkInvariants();
  return feedLock.waitFor(milliseconds);
}

// Marks all current waiters as woken. Call it before feedLock is released for a notifyAll that
// follows without the lock.
void BufferQueue::noteWoken() {
  wish.woken = true;
  room.woken = true;
}

void BufferQueue::wakeAll() {
  noteWoken();
  feedLock.notifyAll(0);
}

// True if the byte at pos is buffered. Every chunk for a waiting reader asks this, mostly near
// rdTail or wtHead. Blocks with data are in order, so the blocks before these two are then skipped.
bool BufferQueue::holds(long long pos) {
  BlockIt it = blocks.begin();
  for (const BlockIt near : {rdTail, wtHead}) {
    const long long beginning = (*near)->getBeginningSeqNum();
    if (beginning <= pos && beginning > (*it)->getBeginningSeqNum()) it = near;
  }
  for (; it != blocks.end() && (*it)->getBeginningSeqNum() <= pos; ++it) {
    if ((*it)->isContained(pos)) return true;
  }
  return false;
}

// End of the stretch that is buffered from pos on; pos itself if it is not buffered.
long long BufferQueue::heldUntil(long long pos) {
  long long end = pos;
  for (const BufferBlock* block : blocks) {
    if (block->isContained(end)) end = block->end();
  }
  return end;
}

// True if the connection that runs, or is announced, delivers pos without another restart. A stream
// that cannot seek is read up to there.
bool BufferQueue::comesWithThisConnection(long long pos) {
  if (connection.state == StreamConnection::kNone || pos < (*wtHead)->getBeginningSeqNum())
    return false;
  return !seekable || (*wtHead)->willContained(pos) || pos - writeEnd() <= kReadAheadMargin;
}

#if defined(FLUVIA_CHECK_INVARIANTS)

void BufferQueue::checkInvariants() {
  const char* broken = brokenInvariant();
  if (broken == nullptr) return;
  fprintf(stderr, "\nBufferQueue(%p): %s\n", static_cast<void*>(this), broken);
  fprintf(stderr,
          "state %d version %d of %d noted %d status %d retries %d size %lld from %lld readOffset "
          "%lld needFeed %d running %d break %d wish %d asks %d woken %d until %lld unserved %d "
          "room %d woken %d steps %d resume %lld\n",
          connection.state, connection.version, version.get(), restarts.noted, streamStatus.get(),
          retryCount.get(), contentSize.get(), streamFrom, readOffset.get(), needFeed, readRunning,
          breakRequested, wish.kind, wish.asks, wish.woken, wish.until, wish.unserved, room.waits,
          room.woken, room.steps, room.resumeAt);
  for (BlockIt it = blocks.begin(); it != blocks.end(); ++it) {
    fprintf(stderr, "%s%s%d: %lld ~ %lld\n", it == rdTail ? "R" : " ", it == wtHead ? "W " : "  ",
            (*it)->getId(), (*it)->getBeginningSeqNum(), (*it)->end());
  }
  abort();
}

// The invariant that does not hold, or null.
const char* BufferQueue::brokenInvariant() {
  // Before the blocks are claimed, and after they are released.
  if (!initialized || blocks.empty() || blocks.front() == nullptr) return nullptr;
  const char* broken = wrongInList();
  if (broken == nullptr) broken = wrongInConnection();
  if (broken == nullptr) broken = wrongInWishes();
  return broken;
}

const char* BufferQueue::wrongInList() {
  bool tailIsIn = false;
  bool headIsIn = false;
  long long end = 0;
  for (BlockIt it = blocks.begin(); it != blocks.end(); ++it) {
    tailIsIn = tailIsIn || it == rdTail;
    headIsIn = headIsIn || it == wtHead;
    if ((*it)->isUnused()) continue;
    if ((*it)->getBeginningSeqNum() < end) return "a block begins before its predecessor's end";
    end = (*it)->end();
  }
  if (!tailIsIn) return "rdTail is not in the list";
  if (!headIsIn) return "wtHead is not in the list";
  return nullptr;
}

const char* BufferQueue::wrongInConnection() {
  switch (connection.state) {
    case StreamConnection::kNone:
      return nullptr;
    case StreamConnection::kAnnounced:
      if (connection.version == version) return "the version that is announced has begun";
      if (streamFrom != writeEnd()) return "the next connection does not start at the write head";
      return nullptr;
    default:
      return connection.version == version ? nullptr : "the connection that runs is an older one";
  }
}

const char* BufferQueue::wrongInWishes() {
  if (breakRequested && !readRunning) return "a break is requested of no read";
  if (breakRequested && wish.stands() && !wish.woken) return "a broken reader was not woken";
  if (room.isMet((*rdTail)->getBeginningSeqNum()) && !room.woken)
    return "the transfer has room and was not woken";
  if (!wish.stands()) return nullptr;
  if (!readRunning) return "a reader waits outside a read";
  if (wish.unserved > 1) return "a reader waits while chunks go past that it has no use for";
  if (wish.woken || exits()) return nullptr;
  if (room.waits && !room.woken) return "a reader and a transfer without room wait for each other";
  if (connection.state == StreamConnection::kNone) {
    return "a reader waits for a connection that nobody makes";
  }
  if (connection.state == StreamConnection::kParked && !needFeed) {
    return "a reader waits for a parked transfer that it does not ask";
  }
  const long long held = heldUntil(readOffset);
  if (held > readOffset && held >= wish.until)
    return "a reader has what it waits for and was not woken";
  const bool written = held == readOffset ? (*wtHead)->willContained(readOffset)
                                          : writeEnd() >= readOffset && held >= writeEnd();
  if (wish.kind == ReaderWish::kRest && !written) {
    return "a reader waits for the rest of a block that is not being written";
  }
  return nullptr;
}

#else

void BufferQueue::checkInvariants() {}

#endif

}  // namespace util
