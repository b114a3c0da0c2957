#ifndef FLUVIAFS_UTIL_BUFFERQUEUE_H_
#define FLUVIAFS_UTIL_BUFFERQUEUE_H_

#include <list>
#include <string>

#include "util/BufferBlock.h"
#include "util/BufferBlockPool.h"
#include "util/BufferQueueDataReceiver.h"
#include "util/BufferQueueProducer.h"
#include "util/DumpFile.h"
#include "util/ReaderPace.h"
#include "util/ReaderWish.h"
#include "util/Relaxed.h"
#include "util/Restarts.h"
#include "util/RoomWish.h"
#include "util/Semaphore.h"
#include "util/StreamConnection.h"
#include "util/TaskQueue.h"
#include "util/ThreadObject.h"

namespace util {

// Values of the stream status.
enum StreamStatus {
  STATUS_IDLE = -1,          // no connection yet, or ready to connect again
  STATUS_NORMAL = 0,         // a connection delivers data
  STATUS_PARTIAL_END = 1,    // the connection ended normally
  STATUS_ERROR = 2,          // the connection failed; final once retryCount is above 1
  STATUS_RELEASED = 3,       // the queue is being closed, or a read was aborted
  STATUS_NOT_FOUND = 4,      // the resource does not exist
  STATUS_TIMEOUT = 5,        // the connection timed out; final once retryCount is above 1
  STATUS_NOT_AVAILABLE = 6,  // the resource cannot be served
  STATUS_RESET = 7           // the feeding monitor restarts the stream
};

// Stream buffer between one producer and the readers of one resource.
//
// A fixed set of 32768-byte blocks forms a movable span over the resource, in resource order from
// front to back. The producer fills the block at wtHead, readers copy out of the block at rdTail. A
// reader whose data is not in the span sets needFeed. The transfer thread sees the flag at its next
// chunk, or while it is parked after the end of its range. It places a block at the requested
// offset (fragmentStreaming) and replaces the connection (resetStreaming): version grows by one,
// and a task on the thread engine stops the producer and starts the worker again. Data of an older
// version is dropped.
//
// Threads:   readers on any thread (serialised by the queue lock, which is this object); the worker
//            inside the producer's startStreaming; the producer's transfer thread in streamIn and
//            notifyStreamException; thread-engine workers in the restart task. Lock order: the
//            queue lock, workerLock, the producer's lock, feedLock, then the leaves statusLock,
//            restartLock and the engine's. All waiting for data, space or an end is on feedLock's
//            condition.
// Ownership: owns its blocks while initialised; the producer is not owned and lives until release()
//            has returned.
// Invariant: from resetStreaming() until the first byte of the new version arrives, streamFrom is
//            the end of the block at wtHead.
class BufferQueue : public Semaphore, public BufferQueueDataReceiver {
 public:
  // bufferSize in bytes: bufferSize / 32768 blocks, at least two. Takes no blocks yet.
  explicit BufferQueue(int bufferSize);
  ~BufferQueue() override;

  // Stores size bytes at the write head; may wait for a free block. Returns 1 to continue, 0 to
  // stop this connection.
  int streamIn(void* data, unsigned int size, int version) override EXCLUDES(feedLock);
  // Handles a StreamEvent; after the end of a range it may wait until a reader needs more.
  void notifyStreamException(int event) override EXCLUDES(feedLock);

  // Stores the producer. The first call also claims pool and blocks and starts the thread engine.
  // Returns false if a block cannot be allocated; the queue must then not be used.
  bool initialize(BufferQueueProducer* producer);
  // Begins shutdown: ends every read, stops the producer and the worker, and waits for running
  // restart tasks. Does not use the producer afterwards.
  void release() EXCLUDES(this);

  // Reads at most size bytes at readOffset, waiting for them. Returns 0 with the count in
  // *readBytes (fewer than asked only at the end of the resource), -13 at the end, or a failure:
  // -1, -4, -6 (time-out), -17 (not available), -21 (not found). *readBytes is always set.
  int read(char* buffer, unsigned int size, unsigned int* readBytes) EXCLUDES(this);
  // Same, as the read with that number. The owner numbers its reads and probes from 1 on, in order.
  int read(char* buffer, unsigned int size, unsigned int* readBytes, unsigned long long number)
      EXCLUDES(this);
  // Moves the read offset; opens no connection. Returns false if the offset is negative or past a
  // known size (the read offset then stays, and *newOffset reports it), or if the stream has
  // failed.
  bool seek(long long offset, long long* newOffset) EXCLUDES(this);
  // Makes a running read return, and waits until it has noticed. Does nothing if none runs.
  void breakRead() EXCLUDES(feedLock);
  // Aborts every read and probe up to that number, whether it runs or has not started yet, and
  // waits until a running one has noticed.
  void breakReads(unsigned long long highest) EXCLUDES(feedLock);
  // Learns size and seekability by reading one byte, unless they are known or the stream has
  // failed. The read offset does not change. Waits for the first byte.
  void probe() EXCLUDES(this);
  void probe(unsigned long long number) EXCLUDES(this);

  // Contiguous bytes buffered from offset on, 0 if byte offset is not buffered.
  long long getBufferedSize(long long offset) EXCLUDES(feedLock);
  // True if the running connection delivers offset next, so that a reader there needs no other one.
  bool comesNext(long long offset) EXCLUDES(feedLock);
  // Announces that the next read is likely to be at offset. If that is buffered, the transfer
  // reuses the blocks before it first, not those behind it, and a transfer that waits for room
  // checks again. Does nothing while a read runs.
  void expectReader(long long offset) EXCLUDES(feedLock);
  // A number that grows with every connection.
  int connectionVersion() const { return version; }
  // A number that grows whenever a read waits for data.
  unsigned int readerWaits() const { return waits; }
  // Offset of the first byte of the front block, 0 when the list is empty.
  long long getMiniBlockOffset() EXCLUDES(feedLock);

  bool isRandomAccess() const { return seekable; }
  void setVolContent() { volatileContent = true; }
  bool isVolatile() const { return volatileContent; }
  long long getReadPosition() const { return readOffset; }
  long long getContentSize() const { return contentSize; }
  // Capacity in bytes as asked for, rounded down to whole blocks; not raised to the minimum of two
  // blocks.
  int getBufferSize() const { return bufferCapacity; }
  void setUri(const std::string& uri) { name = uri; }

  // True if no more data will come: closed, not found, not available, or failed twice in a row.
  bool needExit() { return streamStatus >= STATUS_ERROR && isExit(true); }
  bool errorOccured() { return needExit(); }
  bool isResetStream() const { return streamStatus == STATUS_RESET; }
  // Makes a status of 3, 4 or 5 idle again.
  void resetErrorStatus();
  // Makes a status 3 that no release() set idle again: it comes from an aborted read and is not
  // final.
  void forgetBrokenRead() EXCLUDES(feedLock);

  // Does nothing; the monitor is not armed by this library.
  void startMonitorFeeding();
  // Monitor entry: feedManually() of the queue given as argument.
  static void fillMonitor(void* queue);
  // Restarts the stream at the write head's block when a reader waits on a connection.
  void feedManually() EXCLUDES(feedLock);

  // Compares the start of a new connection with the start of the first one. Returns true if they
  // differ or the comparison is not finished. Returns false if they are the same: the content size
  // then becomes the end of the write head.
  bool cacheHeadToCheck(unsigned char* data, unsigned int size) EXCLUDES(feedLock);

  // Logs the block list at level 3.
  void dumpBuffer(bool all) EXCLUDES(feedLock);
  // Destroys every block of the list and subtracts them from the pool's counters. Returns true.
  bool deleteBlock(BufferBlockPool* pool);

 private:
  friend class BufferQueueProbe;

  using BlockList = std::list<BufferBlock*>;
  using BlockIt = BlockList::iterator;

  static constexpr unsigned int kBlockSize = 32768;

  // Who waits, and who serves.
  //
  // A reader waits for a block that is not in the span (it may ask for another connection), or for
  // the rest of the block that is being written. It is served
  //   - by the chunk that completes what it waits for, at most kWakeDistance bytes;
  //   - by the running connection, if it is at most kReadAheadMargin ahead of the written data;
  //   - otherwise by the next chunk, which announces a restart at the reader's block, and by the
  //     connection that this restart begins. The wish outlives the restart: every chunk checks it
  //     until the reader itself clears it.
  // So at most one chunk that the reader does not need is stored after it began to wait. An end
  // that announces no restart wakes the reader, which then asks for a connection itself. An abort,
  // the release and every event wake it too.
  //
  // A transfer without room pauses: all blocks are filled, and waking it for each block that a
  // reader leaves would cost more than the block. It continues when a reader is near the write
  // head, that is, when another read of the size of its last one would leave less than keptAhead()
  // bytes ahead of it. So half of the buffer stays ahead if the server is fast enough. The pause
  // ends
  //   - when a read, or the move to an expected reader, leaves the reader that near, once a block
  //     was left;
  //   - when a reader begins or continues to wait, near or far: it wakes all threads;
  //   - when such a reader is aborted, and at the release, an event or a newer version: these wake
  //     all threads too;
  //   - after kLongestPauseMs, if a block was left. If none was left, no reader is playing: the
  //     transfer sleeps without a time limit, and the first block that is left wakes it. The same
  //     holds if a reader is near when the pause begins, as with two or three blocks.
  // The read that follows a seek decides: outside of the buffered range it waits, inside it leaves
  // a reader that is near or not. With several readers each decides for itself, so the foremost
  // wakes the transfer. The time limit exists for the server; no waiting reader needs it.

  // The running connection continues if a reader is at most this many bytes ahead of the written
  // data.
  static constexpr long long kReadAheadMargin = 65536;
  // The most bytes of a long read that one wait covers.
  static constexpr long long kWakeDistance = 8LL * kBlockSize;
  // Part of the blocks that is kept ahead beyond half of the buffer: 1 / kMarginShare.
  static constexpr int kMarginShare = 16;
  // A server may take a longer silence for a dead client. Milliseconds.
  static constexpr int kLongestPauseMs = 800;

  struct HeadCache {
    unsigned char data[kBlockSize];
    int length;
  };
  // Why a waiting reader continues.
  enum class Wake { kLook, kBroken, kExit, kEnd };
  // The read that runs.
  struct CurrentRead {
    const unsigned long long* number = nullptr;  // null for a read without one
    long long end = 0;                           // where it ends, if nothing stops it
    bool endReached = false;                     // it stopped at the end of the resource
  };
  // Marks a read as running while it is inside the buffer. Clears the mark also if the caller's
  // thread is cancelled.
  class RunningRead;

  // Holds feedLock for a scope. Builds with invariant checks check the queue's invariants every
  // time the lock is released, also to wait.
  class SCOPED_CAPABILITY FeedLock {
   public:
    explicit FeedLock(BufferQueue* queue) ACQUIRE(queue->feedLock) : queue_(queue) {
      queue_->feedLock.syncBegin();
    }
    ~FeedLock() RELEASE() {
      if (!held_) return;
      queue_->checkInvariants();
      queue_->feedLock.syncEnd();
    }
    FeedLock(const FeedLock&) = delete;
    FeedLock& operator=(const FeedLock&) = delete;

    void release() RELEASE() {
      queue_->checkInvariants();
      held_ = false;
      queue_->feedLock.syncEnd();
    }
    // Locks again after release().
    void acquire() ACQUIRE() {
      queue_->feedLock.syncBegin();
      held_ = true;
    }

   private:
    BufferQueue* queue_;
    bool held_ = true;
  };

  // The end, the worker and restarts (BufferQueue.cpp).
  void giveBlocksBack(bool toPool) EXCLUDES(feedLock);
  static void* workerRun(void* queue);
  static void restartTask(void* queue, TEngineEvent_E event);
  void workBegin() EXCLUDES(feedLock);
  bool prepareConnection(int* startVersion, long long* from, long long* length) EXCLUDES(feedLock);
  bool mayBegin() REQUIRES(feedLock);
  int startProducer(int startVersion, long long from, long long length) EXCLUDES(feedLock);
  void connectionLeft(int startVersion, int result) EXCLUDES(feedLock);
  void startWorker() EXCLUDES(feedLock);
  void stopWorker() REQUIRES(workerLock) EXCLUDES(feedLock);
  void restart() EXCLUDES(workerLock, feedLock);
  void giveRestartUp() EXCLUDES(feedLock);
  void restartDone() EXCLUDES(restartLock);
  void resetStreaming() REQUIRES(feedLock);
  bool prepareRestart() REQUIRES(feedLock);
  bool announceRestart() REQUIRES(feedLock);
  void queueRestartTask() REQUIRES(feedLock);
  void restartFromWriteHead() REQUIRES(feedLock);
  void setStatus(int status) EXCLUDES(statusLock);
  // needExit() without its log lines.
  bool exits() const { return streamStatus >= STATUS_ERROR && isExit(false); }
  bool isExit(bool told) const;
  void failStream() REQUIRES(feedLock);

  // Waiting, waking and what holds whenever feedLock is free (BufferQueueState.cpp).
  void waitOnFeed() REQUIRES(feedLock);
  bool waitOnFeed(int milliseconds) REQUIRES(feedLock);
  void noteWoken() REQUIRES(feedLock);
  void wakeAll() REQUIRES(feedLock);
  bool holds(long long pos) REQUIRES(feedLock);
  long long heldUntil(long long pos) REQUIRES(feedLock);
  bool comesWithThisConnection(long long pos) REQUIRES(feedLock);
  void checkInvariants() REQUIRES(feedLock);
  const char* brokenInvariant() REQUIRES(feedLock);
  const char* wrongInList() REQUIRES(feedLock);
  const char* wrongInConnection() REQUIRES(feedLock);
  const char* wrongInWishes() REQUIRES(feedLock);

  // The block list (BufferQueueBlocks.cpp).
  BlockIt selectBlockToWrite(bool feeding) REQUIRES(feedLock);
  bool resetBlock(BlockIt& it) REQUIRES(feedLock);
  void flushBuffer(BlockIt& it) REQUIRES(feedLock);
  bool checkErrorInsert(BlockIt& it) REQUIRES(feedLock);
  void dumpBlocks(bool all) REQUIRES(feedLock);
  bool fragmentStreaming(long long from, BlockIt& endIt) REQUIRES(feedLock);
  BlockIt leaveWriteHead(long long from, BlockIt* endIt, bool* direct) REQUIRES(feedLock);
  bool placeSelected(long long from, BlockIt endIt, BlockIt* selected) REQUIRES(feedLock);
  bool fragmentOrNext(long long from, BlockIt endIt) REQUIRES(feedLock);
  void failPlacement() REQUIRES(feedLock);
  bool flushAndRestart() REQUIRES(feedLock);
  static long long alignLeft(long long pos) { return pos / kBlockSize * kBlockSize; }
  int idOf(BlockIt it) REQUIRES(feedLock) { return it == blocks.end() ? -1 : (*it)->getId(); }
  long long writeEnd() REQUIRES(feedLock) { return (*wtHead)->end(); }

  // Stream input (BufferQueueInput.cpp).
  bool refuses(int dataVersion) REQUIRES(feedLock);
  int storeChunk(unsigned char* data, unsigned int size, int dataVersion) REQUIRES(feedLock);
  // Result of the search for a free block.
  enum class Room { kFound, kDropped, kStop };
  void waitForRoom() REQUIRES(feedLock);
  long long keptAhead() const;
  Room findRoom(int dataVersion, BlockIt* found) REQUIRES(feedLock);
  Room nextBlock(int dataVersion) REQUIRES(feedLock);
  bool runsIntoNextBlock(long long next) REQUIRES(feedLock);
  void moveBehindWriteHead(BlockIt selected, long long beginning) REQUIRES(feedLock);
  void noteStored(unsigned int count) REQUIRES(feedLock);
  int serveReader(BufferBlock* first, bool dropped) REQUIRES(feedLock);
  int serveReaderBehind(bool dropped) REQUIRES(feedLock);
  int serveReaderAhead(bool dropped) REQUIRES(feedLock);
  int restartAhead() REQUIRES(feedLock);
  int goOn(bool dropped) REQUIRES(feedLock);
  bool reportsEnd() const REQUIRES(feedLock);
  bool readerLacksItsBytes() REQUIRES(feedLock);
  bool readerCanGoOn() REQUIRES(feedLock);
  void noteService(int result) REQUIRES(feedLock);

  // Reading (BufferQueueRead.cpp).
  int readLocked(char* buffer, unsigned int size, unsigned int* readBytes,
                 const unsigned long long* number) REQUIRES(this) EXCLUDES(feedLock);
  void noteRead(char* buffer, unsigned int size, unsigned int readBytes) REQUIRES(feedLock);
  int endFailedRead(bool leftBlocks) REQUIRES(feedLock);
  bool opensStream() REQUIRES(this) EXCLUDES(feedLock);
  bool startFirstConnection() REQUIRES(this) EXCLUDES(feedLock);
  int readCode();
  bool fill(long long pos, unsigned int count, char* buffer, unsigned int* readBytes, int direction)
      REQUIRES(feedLock);
  bool easyFill(long long pos, unsigned int count, char* buffer, unsigned int* readBytes,
                bool notCheck) REQUIRES(feedLock);
  bool readsOnInBlock(const BufferBlock* block, long long beginning) REQUIRES(feedLock);
  bool copyFound(long long pos, unsigned int count, char* buffer, unsigned int* got, bool backward)
      REQUIRES(feedLock);
  unsigned int copyOut(unsigned int count, char* buffer, long long pos) REQUIRES(feedLock);
  unsigned int takeArrived(unsigned int count, char* buffer) REQUIRES(feedLock);
  void probeAs(const unsigned long long* number) EXCLUDES(this);
  void breakRunning() REQUIRES(feedLock);
  bool atEnd(long long pos) const { return contentSize != 0 && pos >= contentSize; }

  // Where a reader is, and its waits (BufferQueueWait.cpp).
  bool findForward(long long pos) REQUIRES(feedLock);
  bool findBackward(long long pos, bool* forwardInstead) REQUIRES(feedLock);
  Wake waitBackward(long long pos, bool inFront) REQUIRES(feedLock);
  Wake waitForFeed(const char* before, const char* after, long long pos) REQUIRES(feedLock);
  bool waitForBlock(long long pos, bool notCheck) REQUIRES(feedLock);
  void waitInBlock(const BufferBlock* block) REQUIRES(feedLock);
  void waitAsReader(ReaderWish::Kind kind) REQUIRES(feedLock);
  void placeReader() REQUIRES(feedLock);
  void followReader() REQUIRES(feedLock);
  void moveReaderTo(long long pos) REQUIRES(feedLock);
  bool stepForward(long long pos) REQUIRES(feedLock);
  bool stepBackward(long long pos) REQUIRES(feedLock);

  // Events (BufferQueueEvents.cpp).
  void handleEvent(int event) REQUIRES(feedLock);
  void onNormal() REQUIRES(feedLock);
  void onError() REQUIRES(feedLock);
  void onTimeout() REQUIRES(feedLock);
  void onDead() REQUIRES(feedLock);
  void onCanceled() REQUIRES(feedLock);
  void partialEnd() REQUIRES(feedLock);
  void continueAfterEnd() REQUIRES(feedLock);
  bool continueInGap() REQUIRES(feedLock);
  bool walkForGap() REQUIRES(feedLock);
  void refill(BlockIt block, BlockIt next) REQUIRES(feedLock);
  void parkUntilFed() REQUIRES(feedLock);
  bool parkOnce(int parkedVersion) REQUIRES(feedLock);
  void feedReader() REQUIRES(feedLock);
  bool needToFeed() REQUIRES(feedLock);
  bool everythingArrived() REQUIRES(feedLock) {
    return contentSize > 0 && writeEnd() >= contentSize;
  }
  bool emptyEndIsFinal() REQUIRES(feedLock);

  DumpFile dump;
  Semaphore workerLock;  // serialises stopping and restarting the worker
  Semaphore statusLock;  // taken around every write of streamStatus
  bool readRunning GUARDED_BY(feedLock);
  bool waitingFeedRequest GUARDED_BY(feedLock);
  bool delayNextConnection GUARDED_BY(feedLock);
  int blockCount;
  int bufferCapacity;
  int gapDetected GUARDED_BY(feedLock);
  Relaxed<long long> contentSize;  // written under feedLock, or by a read under both locks
  Relaxed<int> activeWorkNum;      // runs requested and not yet stopped
  bool initialized;
  bool workerStarted GUARDED_BY(this);
  BufferQueueProducer* producer;
  Relaxed<long long> readOffset;  // written under the queue lock
  long long streamFrom GUARDED_BY(feedLock);
  long long streamLength GUARDED_BY(feedLock);
  std::string name;
  long long connectionBegin GUARDED_BY(feedLock);
  Relaxed<int> version;  // written under feedLock
  int reserved;
  Semaphore feedLock;
  ThreadObject worker;
  bool seekRequested GUARDED_BY(this);
  bool breakRequested GUARDED_BY(feedLock);
  Relaxed<int> streamStatus;  // written under statusLock
  bool needFeed GUARDED_BY(feedLock);
  BlockList blocks GUARDED_BY(feedLock);
  BlockIt rdTail GUARDED_BY(feedLock);
  BlockIt wtHead GUARDED_BY(feedLock);
  Relaxed<bool> seekable;   // written under feedLock
  Relaxed<int> retryCount;  // written under feedLock
  HeadCache headCache GUARDED_BY(feedLock);
  HeadCache newHeadCache GUARDED_BY(feedLock);
  bool headChecking GUARDED_BY(feedLock);
  Relaxed<bool> volatileContent;
  BufferBlockPool* pool;
  Relaxed<bool> connecting;  // written under feedLock

  // release() was called: status 3 is final.
  bool releaseCalled GUARDED_BY(feedLock);
  StreamConnection connection GUARDED_BY(feedLock);
  Restarts restarts GUARDED_BY(feedLock);
  CurrentRead reading GUARDED_BY(feedLock);
  // The highest number that breakReads() was called with.
  unsigned long long brokenUpTo GUARDED_BY(feedLock);
  ReaderWish wish GUARDED_BY(feedLock);
  Relaxed<unsigned int> waits;  // of readers so far; written under feedLock
  // Decides whether to batch wake-ups for a fast reader.
  ReaderPace pace GUARDED_BY(feedLock);
  RoomWish room GUARDED_BY(feedLock);
  // Restart tasks queued or running; release() waits for them.
  Semaphore restartLock;
  int restartTasks GUARDED_BY(restartLock);

  // Set when a server sends more than was asked for; the cancel event that follows clears it.
  static Relaxed<bool> overDeliveryCancel;
  // Counts waits after the end of a range; every sixth one dumps the buffer.
  static Relaxed<int> feedWaitCount;
  // kLongestPauseMs, except in tests that show that no waiting reader needs the time limit.
  static Relaxed<int> longestPauseMs;
};

}  // namespace util

#endif  // FLUVIAFS_UTIL_BUFFERQUEUE_H_
