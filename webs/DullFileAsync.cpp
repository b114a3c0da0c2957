// Asynchronous reads: the table of requests, their way over the thread engine, and cancelling.
//
// The engine's six workers also restart streams. A worker that reads may wait for such a restart,
// so at most five requests have a place on the engine at a time, and one of each file: a second one
// would only wait for the file lock. The others wait here, in order.
#include <algorithm>
#include <exception>
#include <list>
#include <memory>

#include "util/Log.h"
#include "util/NeverDestroyed.h"
#include "util/PausePoint.h"
#include "util/ThreadEngine.h"
#include "webs/DullFile.h"
#include "webs/DullFileManager.h"
#include "webs/FluviaFile.h"

namespace webs {

namespace {

constexpr int kFailed = -4;
constexpr int kEndOfFile = -13;
constexpr int kInvalidId = -1;
constexpr int kMaxRequests = 511;
constexpr int kMaxHanded = 5;
// How often a close looks again at what it waits for.
constexpr int kCloseRepeatMs = 5;

AsyncReadRequest* asyncRequests[kMaxRequests + 1];  // index 0 is never used
util::NeverDestroyed<util::Semaphore> asyncLockStorage;
util::NeverDestroyed<std::list<AsyncReadRequest*>> waitingRequests;
int handedRequests = 0;

// Callbacks of users that are on this thread's stack.
thread_local int callbackDepth = 0;

util::Semaphore& asyncLock() { return *asyncLockStorage; }

void callUser(const AsyncReadRequest* record, int status, int readBytes) {
  ++callbackDepth;
  record->callback(record->requestId, record->userData, status, readBytes);
  --callbackDepth;
}

// A thread that calls back for a handle, counted so that a close can wait for it.
void callbacksChanged(int* callbacks, int change) {
  util::Lock lock(asyncLock());
  *callbacks += change;
  if (change < 0) asyncLock().notifyAll(0);
}

// How many requests may be on the engine at once: one of its workers is left for restarts, also
// when fewer than six could be made.
int placesOnEngine() {
  return std::min(kMaxHanded, util::ThreadEngine::getInstance()->workerCount() - 1);
}

int lowestFreeId() {
  for (int id = 1; id <= kMaxRequests; ++id) {
    if (asyncRequests[id] == nullptr) return id;
  }
  return 0;
}

}  // namespace

int DullFile::readAsync(char* buffer, unsigned int size, long long offset, ReadCallback callback,
                        void* userData, int* requestId, FluviaFile* reader, int* issued) {
  // A worker that reads may wait for a restart, which takes another one.
  if (placesOnEngine() < 1) return kFailed;
  std::unique_ptr<AsyncReadRequest> made(new AsyncReadRequest());
  made->buffer = buffer;
  made->size = size;
  made->offset = offset;
  made->callback = callback;
  made->userData = userData;
  made->file = this;
  made->reader = reader;
  {
    util::Lock lock(asyncLock());
    if (reader->isClosing()) return kFailed;
    const int id = lowestFreeId();
    if (id == 0) {
      FLUVIA_LOG(0, "send too many read request, exceed the limitation %d\n", kMaxRequests);
      FLUVIA_LOG(0, "alloc request id fail\n");
      return kFailed;
    }
    waitingRequests->push_back(made.get());
    use();
    reader->use();
    made->requestId = id;
    asyncRequests[id] = made.release();
    *requestId = id;
    if (issued != nullptr) *issued = id;
  }
  FLUVIA_LOG(1, "request thread engine to run read request");
  handOver();
  return 0;
}

// Takes the first waiting request whose file has a place free. Null when there is none, or no
// place.
AsyncReadRequest* DullFile::nextToHandOver() {
  util::Lock lock(asyncLock());
  if (handedRequests >= placesOnEngine()) return nullptr;
  const auto it =
      std::find_if(waitingRequests->begin(), waitingRequests->end(),
                   [](const AsyncReadRequest* record) { return !record->file->asyncHanded; });
  if (it == waitingRequests->end()) return nullptr;
  AsyncReadRequest* record = *it;
  waitingRequests->erase(it);
  record->state = AsyncReadRequest::kQueued;
  record->handed = true;
  record->file->asyncHanded = true;
  ++handedRequests;
  ++record->holders;
  return record;
}

// Gives the engine as many waiting requests as there are places.
void DullFile::handOver() {
  while (AsyncReadRequest* record = nextToHandOver()) {
    FLUVIA_PAUSE_POINT("DullFile::handOver");
    try {
      util::ThreadEngine::getInstance()->requestExecuteOrderly(&DullFile::perform, record,
                                                               record->file);
    } catch (...) {
      // No memory for the task: the read has failed, and its caller is told so.
      FLUVIA_LOG(-4, "async read fail %d", record->requestId);
      callbacksChanged(&record->reader->callbacks, 1);
      bool taken = false;
      {
        util::Lock lock(asyncLock());
        record->state = AsyncReadRequest::kCalling;
        record->file->asyncHanded = false;
        taken = record->taken;
      }
      if (!taken) callUser(record, ASYNC_FAILED, 0);
      finish(record);
    }
    letGo(record);
  }
}

void DullFile::perform(void* arg, util::TEngineEvent_E event) {
  AsyncReadRequest* record = static_cast<AsyncReadRequest*>(arg);
  FLUVIA_LOG(1, "(((((((((((( request count :%d: & buffer is: %p))))))))))))",
             static_cast<int>(record->size), static_cast<void*>(record->buffer));
  if (event == util::TENGINE_EXECUTE) {
    runRead(record);
  } else {
    runCancelled(record);
  }
}

void DullFile::runRead(AsyncReadRequest* record) {
  DullFile* file = record->file;
  {
    util::Lock lock(asyncLock());
    record->state = AsyncReadRequest::kStarted;
  }
  FLUVIA_PAUSE_POINT("DullFile::perform started");
  unsigned int readBytes = 0;
  int result = kFailed;
  {
    Turn turn(file, record->reader, record->offset);
    util::Lock lock(*file);
    try {
      result = file->readFor(record, record->buffer, record->size, record->offset, &readBytes,
                             record->reader);
      turn.hasRead(readBytes);
    } catch (const std::exception& error) {
      FLUVIA_LOG_AS("perform", -4, "failed: %s", error.what());
    }
  }
  bool taken = false;
  {
    util::Lock lock(asyncLock());
    record->state = AsyncReadRequest::kCalling;
    taken = record->taken;
    if (record->cancelled && result != 0 && result != kEndOfFile) result = kCancelledBefore;
    ++record->reader->callbacks;
    file->asyncHanded = false;
  }
  handOver();
  if (!taken) callBack(record, result, readBytes);
  finish(record);
}

void DullFile::callBack(AsyncReadRequest* record, int result, unsigned int readBytes) {
  const int id = record->requestId;
  const int count = static_cast<int>(readBytes);
  if (result == 0 || result == kEndOfFile) {
    FLUVIA_LOG_AS("perform", 1, "async read %d ok in perform ((((((()))))))", id);
    record->reader->newPosMovedByDullFile(record->offset, record->offset + readBytes);
    callUser(record, result == 0 ? ASYNC_DONE : ASYNC_END_OF_FILE, count);
    return;
  }
  FLUVIA_LOG_AS("perform", 1, "async read fail %d", id);
  callUser(record, result == kCancelledBefore ? ASYNC_CANCELLED : ASYNC_FAILED, count);
}

void DullFile::runCancelled(AsyncReadRequest* record) {
  FLUVIA_LOG_AS("perform", 1, "cancel async read %d", record->requestId);
  bool taken = false;
  {
    util::Lock lock(asyncLock());
    record->state = AsyncReadRequest::kCalling;
    taken = record->taken;
    ++record->reader->callbacks;
    if (record->handed) record->file->asyncHanded = false;
  }
  handOver();
  if (!taken) callUser(record, ASYNC_CANCELLED, 0);
  finish(record);
}

// After the callback of a request: its id is free, its file is given back, and only then its place
// and the close that may wait for it.
void DullFile::finish(AsyncReadRequest* record) {
  clearSlot(record);
  DullFileManager::unuse(record->file);
  {
    util::Lock lock(asyncLock());
    if (record->handed) --handedRequests;
    --record->reader->callbacks;
    asyncLock().notifyAll(0);
  }
  handOver();
  letGo(record);
}

// Gives one hold of a request back. The last one frees it and gives its handle back.
void DullFile::letGo(AsyncReadRequest* record) {
  {
    util::Lock lock(asyncLock());
    if (--record->holders > 0) return;
  }
  record->reader->unuse();
  delete record;
}

void DullFile::clearSlot(AsyncReadRequest* record) {
  util::Lock lock(asyncLock());
  if (asyncRequests[record->requestId] == record) asyncRequests[record->requestId] = nullptr;
}

// Registers who reads. False: the read does not take place, *refusal says why.
bool DullFile::beginReading(AsyncReadRequest* record, FluviaFile* reader, int* refusal) {
  util::Lock lock(readLock);
  const bool refers = !reader->isClosing() &&
                      std::find(references.begin(), references.end(), reader) != references.end();
  if (record != nullptr) {
    util::Lock table(asyncLock());
    if (record->taken || record->cancelled || reader->isClosing()) {
      *refusal = record->taken ? kTakenByClose : kCancelledBefore;
      return false;
    }
    if (refers) record->state = AsyncReadRequest::kReading;
  }
  if (!refers) {
    FLUVIA_LOG_AS("read", 1, "read failed in dull file");
    *refusal = kFailed;
    return false;
  }
  currentReader = reader;
  nowReader = reader;
  nowRequest = record;
  ++readGeneration;
  return true;
}

int DullFile::cancelRead(int requestId, FluviaFile* reader) {
  FLUVIA_LOG(-4, "cancelRead, reqID:%d", requestId);
  if (requestId < 0 || requestId > kMaxRequests) {
    FLUVIA_LOG(-1, "reqID(%d) is invalid", requestId);
    return kInvalidId;
  }
  if (requestId == 0) {
    breakReader(reader);
    return 0;
  }
  AsyncReadRequest* record = nullptr;
  DullFile* file = nullptr;
  bool waiting = false;
  {
    util::Lock lock(asyncLock());
    record = asyncRequests[requestId];
    if (record == nullptr) return 0;
    file = record->file;
    ++record->holders;
    file->use();
    ++record->reader->callbacks;
    waiting = record->state == AsyncReadRequest::kWaiting;
    if (waiting) {
      waitingRequests->remove(record);
      record->state = AsyncReadRequest::kCalling;
    }
  }
  FLUVIA_PAUSE_POINT("DullFile::cancelRead found");
  const bool queued = cancelQueued(record, waiting);
  callbacksChanged(&record->reader->callbacks, -1);
  if (!queued) cancelRunning(record, reader);
  DullFileManager::unuse(file);
  letGo(record);
  return 0;
}

// Withdraws a request that no worker has taken: its callback is called twice, wanted. False when it
// runs or has run.
bool DullFile::cancelQueued(AsyncReadRequest* record, bool waiting) {
  if (waiting) {
    perform(record, util::TENGINE_CANCELLED);
  } else if (!util::ThreadEngine::getInstance()->cancel(record)) {
    return false;
  }
  bool answered = false;
  {
    util::Lock lock(asyncLock());
    answered = record->taken || record->reader->isClosing();
  }
  if (!answered) callUser(record, ASYNC_CANCELLED, 0);
  clearSlot(record);
  return true;
}

// Marks a request that runs and breaks its read, and no other one.
void DullFile::cancelRunning(AsyncReadRequest* record, FluviaFile* reader) {
  DullFile* file = record->file;
  unsigned int generation = 0;
  bool reads = false;
  {
    util::Lock lock(file->readLock);
    {
      util::Lock table(asyncLock());
      if (asyncRequests[record->requestId] == record && reader == record->reader) {
        record->cancelled = true;
        reads = file->nowRequest == record;
      }
    }
    generation = file->readGeneration;
    file->currentReader = nullptr;
  }
  if (reads) file->breakUntilEnded(generation);
}

// Finds a request of this handle that has not reached the buffer; one that waits for a place is
// taken off the list. Held for the caller. Null when there is none.
AsyncReadRequest* DullFile::findUnanswered(FluviaFile* reader, bool* waiting) {
  util::Lock lock(asyncLock());
  for (AsyncReadRequest* record : asyncRequests) {
    if (record == nullptr || record->reader != reader || !record->isUnanswered()) continue;
    *waiting = record->state == AsyncReadRequest::kWaiting;
    if (*waiting) {
      waitingRequests->remove(record);
      record->state = AsyncReadRequest::kCalling;
    }
    ++record->holders;
    return record;
  }
  return nullptr;
}

// Answers a request whose worker waits for its turn to read: the worker will find nothing to do.
// A close must not wait for the read of another handle.
void DullFile::takeFromWorker(AsyncReadRequest* record) {
  {
    util::Lock lock(asyncLock());
    if (!record->isUnanswered()) return;
    record->taken = true;
  }
  FLUVIA_LOG_AS("perform", 1, "cancel async read %d", record->requestId);
  callUser(record, ASYNC_CANCELLED, 0);
  clearSlot(record);
}

void DullFile::withdrawReads(FluviaFile* reader) {
  bool waiting = false;
  while (AsyncReadRequest* record = findUnanswered(reader, &waiting)) {
    if (waiting) {
      perform(record, util::TENGINE_CANCELLED);
    } else if (!util::ThreadEngine::getInstance()->cancel(record)) {
      takeFromWorker(record);
    }
    letGo(record);
  }
  breakProbes(reader);
  for (;;) {
    unsigned int generation = 0;
    bool inside = false;
    {
      util::Lock lock(readLock);
      inside = nowReader == reader;
      generation = readGeneration;
    }
    if (inside) {
      breakUntilEnded(generation);
      continue;
    }
    util::Lock lock(asyncLock());
    const bool reading = std::any_of(
        std::begin(asyncRequests), std::end(asyncRequests), [reader](const AsyncReadRequest* r) {
          return r != nullptr && r->reader == reader && r->state == AsyncReadRequest::kReading;
        });
    // From a callback there is no waiting for other callbacks: they may be waiting for this one.
    if (!reading && (callbackDepth > 0 || reader->callbacks == 0)) return;
    asyncLock().waitFor(kCloseRepeatMs);
  }
}

}  // namespace webs
