// Construction, the worker and its restarts.
#include "util/BufferQueue.h"

#include <cstdio>
#include <exception>
#include <new>

#include "util/BufferBlockPoolManager.h"
#include "util/Log.h"
#include "util/PausePoint.h"
#include "util/ThreadEngine.h"

namespace util {

namespace {
// A queue with at least this much block memory frees its blocks at the end instead of pooling them.
constexpr long long kKeepBlocksBelow = 0x2000000;
// Interval at which a stop is repeated while the worker is about to start the producer. No
// condition can say when to repeat it: a stop takes effect once the producer's own start has set it
// running, and that changes nothing in the queue; a start of HTTP returns only when its transfer is
// over.
constexpr int kStopRepeatMs = 5;
}  // namespace

Relaxed<bool> BufferQueue::overDeliveryCancel(false);
Relaxed<int> BufferQueue::feedWaitCount(0);
Relaxed<int> BufferQueue::longestPauseMs(kLongestPauseMs);

BufferQueue::BufferQueue(int bufferSize)
    : readRunning(false),
      waitingFeedRequest(false),
      delayNextConnection(false),
      blockCount(bufferSize / static_cast<int>(kBlockSize)),
      bufferCapacity(blockCount * static_cast<int>(kBlockSize)),
      gapDetected(0),
      initialized(false),
      workerStarted(false),
      producer(nullptr),
      streamFrom(0),
      streamLength(0),
      connectionBegin(0),
      reserved(0),
      worker(&BufferQueue::workerRun),
      seekRequested(false),
      breakRequested(false),
      streamStatus(STATUS_PARTIAL_END),
      needFeed(false),
      seekable(true),
      headCache(),
      newHeadCache(),
      headChecking(false),
      volatileContent(false),
      pool(nullptr),
      connecting(false),
      releaseCalled(false),
      brokenUpTo(0),
      restartTasks(0) {
  // After bufferCapacity is set: a small buffer reports less than its two blocks hold. Intentional.
  if (blockCount < 2) blockCount = 2;
  dump.read_usb_path();
}

BufferQueue::~BufferQueue() {
  FLUVIA_LOG(2, "~buffer begin");
  {
    Lock queue(*this);
    worker.stop(true);
    BufferBlockPoolManager* manager = BufferBlockPoolManager::getInstance();
    if (pool != nullptr) {
      giveBlocksBack(manager->getTotalMemorySize() < kKeepBlocksBelow);
      manager->declaimPool(pool);
      pool = nullptr;
    }
    {
      FeedLock feed(this);
      ThreadEngine::getInstance()->giveBack(&restarts.next);
    }
    FLUVIA_LOG(-4, "BufferQueue(%p) poolManagersize:%lld", static_cast<void*>(this),
               manager->getTotalMemorySize());
  }
  FLUVIA_LOG(2, "~buffer end");
}

void BufferQueue::giveBlocksBack(bool toPool) {
  if (!toPool) deleteBlock(pool);
  FeedLock feed(this);
  if (toPool) {
    for (BufferBlock* block : blocks) pool->push(block);
  }
  blocks.clear();
}

bool BufferQueue::initialize(BufferQueueProducer* source) {
  producer = source;
  if (initialized) return true;
  pool = BufferBlockPoolManager::getInstance()->claimPool(static_cast<int>(kBlockSize));
  if (pool == nullptr) return false;
  {
    FeedLock feed(this);
    for (int i = 0; i < blockCount; ++i) {
      blocks.push_back(nullptr);
      BufferBlock* block = pool->pop();
      if (block == nullptr) {
        blocks.pop_back();
        return false;
      }
      block->setId(i);
      blocks.back() = block;
    }
    if (blocks.empty()) return false;
    rdTail = blocks.begin();
    wtHead = blocks.begin();
    blocks.front()->setBeginningSeqNum(0, true);
    version = 0;
  }
  setStatus(STATUS_IDLE);
  ThreadEngine::getInstance()->initialize();
  initialized = true;
  return true;
}

void BufferQueue::release() {
  {
    FeedLock feed(this);
    FLUVIA_LOG(0, "going  to release");
    releaseCalled = true;
    setStatus(STATUS_RELEASED);
    wakeAll();
  }
  {
    Lock queue(*this);
    ThreadEngine::getInstance()->cancelAll(this);
    FLUVIA_LOG(0, " begin to stopWorker");
    {
      Lock work(workerLock);
      stopWorker();
    }
    FLUVIA_LOG(0, " begin to stop timer");
  }
  Lock tasks(restartLock);
  while (restartTasks > 0) restartLock.wait(0);
}

void* BufferQueue::workerRun(void* queue) {
  FLUVIA_LOG(1, "Worker is going to begin");
  static_cast<BufferQueue*>(queue)->workBegin();
  FLUVIA_LOG(1, "worker is successful to finsihed");
  return nullptr;
}

void BufferQueue::workBegin() {
  FLUVIA_LOG(1, "workBegin in");
  int startVersion = 0;
  long long from = 0;
  long long length = 0;
  if (!prepareConnection(&startVersion, &from, &length)) return;
  FLUVIA_PAUSE_POINT("BufferQueue::workBegin before start");
  connectionLeft(startVersion, startProducer(startVersion, from, length));
}

// If memory runs out, the producer starts nothing and its worker continues.
int BufferQueue::startProducer(int startVersion, long long from, long long length) {
  if (producer == nullptr) return 0;
  try {
    return producer->startStreaming(startVersion, from, length);
  } catch (const std::exception& failure) {
    FLUVIA_LOG_AS("workBegin", -4, "start failed: %s", failure.what());
    return -1;
  }
}

// Takes offset, length and version of the next connection in one step under feedLock, together with
// the exit check: either a stop sees connecting, or this sees the stop.
bool BufferQueue::prepareConnection(int* startVersion, long long* from, long long* length) {
  FeedLock feed(this);
  if (!mayBegin()) return false;
  if (delayNextConnection) {
    FLUVIA_LOG_AS("workBegin", 1,
                  "delay 1 second before next new connection (because this server only support one "
                  "connection or one connection has been detected to be limited by serve");
    delay(300);  // zero whole seconds, intentional
  }
  if (*wtHead == nullptr) {
    FLUVIA_LOG_AS("workBegin", 1, "crash here !!!!");
    return false;
  }
  FLUVIA_LOG_AS("workBegin", 1, "%lld + %lld", writeEnd(), streamLength);
  const long long until = static_cast<long long>(static_cast<unsigned long long>(streamFrom) +
                                                 static_cast<unsigned long long>(streamLength));
  if (until >= contentSize || until < 0) {
    streamLength = 0;
    FLUVIA_LOG_AS("workBegin", 1, "error count!!!, revise to 0");
  }
  *from = streamFrom;
  *length = streamLength;
  *startVersion = version;
  streamLength = 0;
  needFeed = false;  // the reader's wish outlives this
  connectionBegin = streamFrom;
  connecting = true;
  if (*from != (*wtHead)->getBeginningSeqNum()) {
    FLUVIA_LOG_AS("workBegin", 1, "errorRRRRRRRRRRRRRRRRRRRRRRRRRRR");
  }
  FLUVIA_LOG_AS("workBegin", 1, "%lld ~ %lld", *from, *from + *length);
  dumpBlocks(false);
  connection = StreamConnection::begun(version);
  return true;
}

// False if the queue exits, or if the version that the worker was started for must not begin: it is
// an older one, or it has begun already.
bool BufferQueue::mayBegin() {
  // The stop of this restart may have met an aborted read.
  if (!releaseCalled && streamStatus == STATUS_RELEASED) resetErrorStatus();
  if (needExit()) {
    FLUVIA_LOG_AS("workBegin", 1, "break from workBegin because of exit request");
    connection.state = StreamConnection::kNone;
    wakeAll();
    return false;
  }
  return restarts.noted == version && connection.version != version;
}

void BufferQueue::connectionLeft(int startVersion, int result) {
  FeedLock feed(this);
  connecting = false;
  if (result < 0 && startVersion == version && !needExit()) {
    // Nothing was started and no event will come: otherwise a reader would wait for ever.
    connection.state = StreamConnection::kNone;
    failStream();
  }
  wakeAll();
}

void BufferQueue::startWorker() {
  if (!worker.start(this)) {
    fputs("start worker failed, errorrrrrrrrrrrrrrrrrrrrrrrrrrrrrrrrrrrrrrrrrrrrrrrrrrrrrrr",
          stderr);
    FeedLock feed(this);
    connection.state = StreamConnection::kNone;
    failStream();
  }
}

void BufferQueue::stopWorker() {
  FLUVIA_LOG(0, "stopWorker in ");
  if (producer != nullptr) {
    bool late = false;
    {
      FeedLock feed(this);
      late = connecting;
    }
    producer->stopStreaming();
    {
      // The worker may have been about to start the producer when it was stopped.
      FeedLock feed(this);
      while (connecting) {
        if (waitOnFeed(kStopRepeatMs) || !connecting) continue;
        feed.release();
        producer->stopStreaming();
        feed.acquire();
      }
      late = late && !connection.endReported;
    }
    // A producer with a thread of its own was started after all and runs.
    if (late) producer->stopStreaming();
  }
  FLUVIA_LOG(0, "stop worker begin");
  worker.stop(false);
  FLUVIA_LOG(0, "stop worker end");
  --activeWorkNum;
}

void BufferQueue::resetStreaming() {
  ++version;
  connection.state = StreamConnection::kAnnounced;
  restarts.refilled = Restarts::kNoBlock;
  wish.unserved = 0;
  queueRestartTask();
}

// False if no restart is possible because memory or workers are missing: the stream cannot
// continue, and its readers get an error.
bool BufferQueue::prepareRestart() {
  ThreadEngine* engine = ThreadEngine::getInstance();
  if (engine->workerCount() > 0) {
    try {
      engine->prepare(&restarts.next);
      return true;
    } catch (const std::bad_alloc&) {
      FLUVIA_LOG_AS("resetStreaming", -4, "no memory for a restart");
    }
  } else {
    FLUVIA_LOG_AS("resetStreaming", -4, "no thread for a restart");
  }
  connection.state = StreamConnection::kNone;
  failStream();
  return false;
}

// For a restart on the transfer's own thread, which then waits until it is stopped. So it is
// announced only if the restart cannot fail. False: the transfer must end by itself.
bool BufferQueue::announceRestart() {
  if (!prepareRestart()) return false;
  producer->setStopWait();
  return true;
}

void BufferQueue::queueRestartTask() {
  if (!prepareRestart()) return;
  ++activeWorkNum;
  FLUVIA_LOG_AS("resetStreaming", 0, "activeWorkNum:%d", activeWorkNum.get());
  {
    Lock tasks(restartLock);
    ++restartTasks;
  }
  ThreadEngine::getInstance()->requestPrepared(&restarts.next, &BufferQueue::restartTask, this,
                                               this);
}

void BufferQueue::restartFromWriteHead() {
  streamFrom = writeEnd();
  resetStreaming();
}

void BufferQueue::restartTask(void* queue, TEngineEvent_E event) {
  BufferQueue* self = static_cast<BufferQueue*>(queue);
  if (event == TENGINE_EXECUTE) self->restart();
  self->restartDone();
}

void BufferQueue::restart() {
  FLUVIA_PAUSE_POINT("BufferQueue::restart begun");
  FLUVIA_LOG_AS("restartTask", 0, "restart worker");
  Lock work(workerLock);
  forgetBrokenRead();
  if (needExit()) {
    FLUVIA_LOG_AS("restartTask", 0, "need exit");
    giveRestartUp();
    return;
  }
  {
    FeedLock feed(this);
    if (restarts.noted == version) {
      // An earlier task has started this version already: stopping it would stream it twice.
      --activeWorkNum;
      return;
    }
  }
  stopWorker();
  {
    FeedLock feed(this);
    restarts.noted = version;
  }
  FLUVIA_PAUSE_POINT("BufferQueue::restart noted");
  FLUVIA_LOG_AS("restartTask", 0, "begin to start worker");
  startWorker();
  FLUVIA_LOG_AS("restartTask", 0, "end to start worker");
}

void BufferQueue::giveRestartUp() {
  bool released = false;
  {
    FeedLock feed(this);
    released = releaseCalled;
  }
  // Ends a transfer that waits for its announced restart.
  if (!released && producer != nullptr) producer->stopStreaming();
  FeedLock feed(this);
  --activeWorkNum;
  connection.state = StreamConnection::kNone;
  wakeAll();
}

void BufferQueue::restartDone() {
  Lock tasks(restartLock);
  --restartTasks;
  restartLock.notifyAll(0);
}

void BufferQueue::setStatus(int status) {
  Lock lock(statusLock);
  streamStatus = status;
}

// True if the status is one to exit with; told: also logs it.
bool BufferQueue::isExit(bool told) const {
  const int status = streamStatus;
  const int retries = retryCount;
  if (status == STATUS_RELEASED || status == STATUS_NOT_FOUND || status == STATUS_NOT_AVAILABLE) {
    if (told) FLUVIA_LOG_AS("needExit", 0, "stream status is :%d", status);
    return true;
  }
  if ((status == STATUS_ERROR || status == STATUS_TIMEOUT) && retries > 1) {
    if (told) {
      FLUVIA_LOG_AS("needExit", 0, "stream status is :%d, retry finished:%d times", status,
                    retries);
    }
    return true;
  }
  return false;
}

void BufferQueue::resetErrorStatus() {
  Lock lock(statusLock);
  const int status = streamStatus;
  if (status == STATUS_RELEASED || status == STATUS_NOT_FOUND || status == STATUS_TIMEOUT) {
    streamStatus = STATUS_IDLE;
  }
}

void BufferQueue::forgetBrokenRead() {
  if (streamStatus != STATUS_RELEASED) return;
  FeedLock feed(this);
  if (!releaseCalled && streamStatus == STATUS_RELEASED) resetErrorStatus();
}

void BufferQueue::failStream() {
  setStatus(STATUS_ERROR);
  retryCount = 2;
  wakeAll();
}

void BufferQueue::startMonitorFeeding() {}

void BufferQueue::fillMonitor(void* queue) { static_cast<BufferQueue*>(queue)->feedManually(); }

bool BufferQueue::deleteBlock(BufferBlockPool* owner) {
  FeedLock feed(this);
  int count = 0;
  for (BufferBlock*& block : blocks) {
    delete block;
    block = nullptr;
    ++count;
  }
  FLUVIA_LOG(-4, "BufferQueue(%p) deleck block count:%d", static_cast<void*>(this), count);
  owner->reduceblocksize(count);
  return true;
}

}  // namespace util
