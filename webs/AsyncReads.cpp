#include "webs/AsyncReads.h"

#include <algorithm>

#include "util/Log.h"
#include "util/PausePoint.h"
#include "util/Results.h"
#include "util/ThreadEngine.h"
#include "webs/DullFile.h"
#include "webs/DullFileManager.h"
#include "webs/FluviaFile.h"

namespace webs {

namespace {

util::NeverDestroyed<AsyncReads> asyncReads;

// Number of user callbacks on this thread's stack.
thread_local int callbackDepth = 0;

void callUser(const AsyncReadRequest* record, int status, int readBytes) {
  ++callbackDepth;
  record->callback(record->requestId, record->userData, status, readBytes);
  --callbackDepth;
}

// How many requests may be on the engine at once. One of its workers (as many as could be started)
// is reserved for restarts.
int placesOnEngine() { return util::ThreadEngine::getInstance()->workerCount() - 1; }

// Moves the position and calls back, according to the result.
void callBack(const AsyncReadRequest* record, int result, unsigned int readBytes) {
  const int id = record->requestId;
  const int count = static_cast<int>(readBytes);
  if (result == util::READ_OK || result == util::READ_END) {
    FLUVIA_LOG_AS("perform", 1, "async read %d ok in perform ((((((()))))))", id);
    record->reader->newPosMovedByDullFile(record->offset, record->offset + readBytes);
    callUser(record, result == util::READ_OK ? ASYNC_DONE : ASYNC_END_OF_FILE, count);
    return;
  }
  FLUVIA_LOG_AS("perform", 1, "async read fail %d", id);
  callUser(record, result == AsyncReads::kCancelledBefore ? ASYNC_CANCELLED : ASYNC_FAILED, count);
}

}  // namespace

AsyncReads& AsyncReads::instance() { return *asyncReads; }

util::Semaphore& asyncLock() { return AsyncReads::instance().lock_; }

AsyncReads::AsyncReads() : asyncRequests{} {}

int AsyncReads::lowestFreeId() const {
  for (int id = 1; id <= kMaxRequests; ++id) {
    if (asyncRequests[id] == nullptr) return id;
  }
  return 0;
}

// --- issuing reads, and the places on the engine ------------------------------------------------

int AsyncReads::ask(const AsyncReadRequest& wanted, int* requestId, int* issued) {
  // A worker that reads may wait for a restart, which needs another worker.
  if (placesOnEngine() < 1) return util::CALL_FAILED;
  // Allocates first: under the lock nothing may fail.
  std::list<AsyncReadRequest> made(1, wanted);
  std::list<AsyncReadRequest*> entry(1, &made.front());
  {
    util::Lock lock(asyncLock());
    if (wanted.reader->isClosing()) return util::CALL_FAILED;
    const int id = lowestFreeId();
    if (id == 0) {
      FLUVIA_LOG_AS("readAsync", 0, "send too many read request, exceed the limitation %d\n",
                    kMaxRequests);
      FLUVIA_LOG_AS("readAsync", 0, "alloc request id fail\n");
      return util::CALL_FAILED;
    }
    wanted.file->use();
    wanted.reader->use();
    made.front().requestId = id;
    asyncRequests[id] = &made.front();
    records.splice(records.end(), made);
    waiting.splice(waiting.end(), entry);
    *requestId = id;
    if (issued != nullptr) *issued = id;
  }
  FLUVIA_LOG_AS("readAsync", 1, "request thread engine to run read request");
  handOver();
  return util::CALL_OK;
}

bool AsyncReads::isOnEngine(const DullFile* file) const {
  return std::any_of(onEngine.begin(), onEngine.end(),
                     [file](const AsyncReadRequest* record) REQUIRES(asyncLock()) {
                       return record->file == file && record->state != AsyncReadRequest::kCalling;
                     });
}

// Takes the first waiting request whose file has no other on the engine, and holds it for the
// caller. Null if there is none, or no free place.
AsyncReadRequest* AsyncReads::nextToHandOver() {
  util::Lock lock(asyncLock());
  if (static_cast<int>(onEngine.size()) >= placesOnEngine()) return nullptr;
  for (auto it = waiting.begin(); it != waiting.end(); ++it) {
    AsyncReadRequest* record = *it;
    if (isOnEngine(record->file)) continue;
    onEngine.splice(onEngine.end(), waiting, it);
    record->state = AsyncReadRequest::kQueued;
    ++record->holders;
    return record;
  }
  return nullptr;
}

// Queues as many waiting requests on the engine as there are free places.
void AsyncReads::handOver() {
  while (AsyncReadRequest* record = nextToHandOver()) {
    FLUVIA_PAUSE_POINT("DullFile::handOver");
    if (!makeTask(record)) refuse(record);
    letGo(record);
  }
}

// False if memory runs out.
bool AsyncReads::makeTask(AsyncReadRequest* record) {
  try {
    util::ThreadEngine::getInstance()->requestExecuteOrderly(&DullFile::perform, record,
                                                             record->file);
    return true;
  } catch (...) {
    return false;
  }
}

// No memory for the task: the read fails, and its caller is called back. Only handOver() calls
// this; its loop hands over the next request, not this function.
void AsyncReads::refuse(AsyncReadRequest* record) {
  FLUVIA_LOG_AS("handOver", -4, "async read fail %d", record->requestId);
  bool answers = false;
  {
    util::Lock lock(asyncLock());
    answers = beginCalling(record);
  }
  if (answers) callUser(record, ASYNC_FAILED, 0);
  leave(record);
  letGo(record);
}

// --- a request on its worker ---------------------------------------------------------------------

void AsyncReads::start(AsyncReadRequest* record) {
  util::Lock lock(asyncLock());
  record->state = AsyncReadRequest::kStarted;
}

bool AsyncReads::beginReading(AsyncReadRequest* record, int* refusal) {
  util::Lock lock(asyncLock());
  if (record->taken || record->cancelled || record->reader->isClosing()) {
    *refusal = record->taken ? kTakenByClose : kCancelledBefore;
    return false;
  }
  record->state = AsyncReadRequest::kReading;
  return true;
}

void AsyncReads::endReading(AsyncReadRequest* record, int result, unsigned int readBytes) {
  bool answers = false;
  {
    util::Lock lock(asyncLock());
    answers = beginCalling(record);
    if (record->cancelled && result != util::READ_OK && result != util::READ_END) {
      result = kCancelledBefore;
    }
  }
  handOver();
  if (answers) callBack(record, result, readBytes);
  finish(record);
}

void AsyncReads::withdrawn(AsyncReadRequest* record) {
  FLUVIA_LOG_AS("perform", 1, "cancel async read %d", record->requestId);
  bool answers = false;
  {
    util::Lock lock(asyncLock());
    answers = beginCalling(record);
  }
  handOver();
  if (answers) callUser(record, ASYNC_CANCELLED, 0);
  finish(record);
}

// Frees the file's place. False if a close has called back already. Notifies a close inside a
// callback that this request no longer reads.
bool AsyncReads::beginCalling(AsyncReadRequest* record) {
  record->state = AsyncReadRequest::kCalling;
  ++record->callers;
  asyncLock().notifyAll(0);
  return !record->taken;
}

// Notifies a close that waits for this callback.
void AsyncReads::endCalling(AsyncReadRequest* record) {
  --record->callers;
  asyncLock().notifyAll(0);
}

// After the callback of a request: first frees its id, then its file, then its place; a close that
// waits for it continues last.
void AsyncReads::leave(AsyncReadRequest* record) {
  clearSlot(record);
  DullFileManager::unuse(record->file);
  util::Lock lock(asyncLock());
  onEngine.remove(record);
  endCalling(record);
}

void AsyncReads::finish(AsyncReadRequest* record) {
  leave(record);
  handOver();
  letGo(record);
}

void AsyncReads::clearSlot(AsyncReadRequest* record) {
  util::Lock lock(asyncLock());
  if (asyncRequests[record->requestId] == record) asyncRequests[record->requestId] = nullptr;
}

// Drops one hold of a request. The last one frees it and drops its use of its handle.
void AsyncReads::letGo(AsyncReadRequest* record) {
  std::list<AsyncReadRequest> gone;
  {
    util::Lock lock(asyncLock());
    if (--record->holders > 0) return;
    const auto it =
        std::find_if(records.begin(), records.end(),
                     [record](const AsyncReadRequest& known) { return &known == record; });
    gone.splice(gone.end(), records, it);
  }
  record->reader->unuse();
}

// --- cancelling ----------------------------------------------------------------------------------

void AsyncReads::takeOffWaiting(AsyncReadRequest* record) {
  waiting.remove(record);
  record->state = AsyncReadRequest::kCalling;
}

// Returns the request of an id, held for the caller and counted as one of its callers. Removes it
// from the list if it waited for a place. Null if there is none.
AsyncReadRequest* AsyncReads::hold(int requestId, bool* wasWaiting) {
  util::Lock lock(asyncLock());
  AsyncReadRequest* record = asyncRequests[requestId];
  if (record == nullptr) return nullptr;
  ++record->holders;
  ++record->callers;
  record->file->use();
  *wasWaiting = record->state == AsyncReadRequest::kWaiting;
  if (*wasWaiting) takeOffWaiting(record);
  return record;
}

void AsyncReads::cancel(int requestId, FluviaFile* reader) {
  bool wasWaiting = false;
  AsyncReadRequest* record = hold(requestId, &wasWaiting);
  if (record == nullptr) return;
  DullFile* file = record->file;
  FLUVIA_PAUSE_POINT("DullFile::cancelRead found");
  const bool queued = cancelQueued(record, wasWaiting);
  {
    util::Lock lock(asyncLock());
    endCalling(record);
  }
  if (!queued) file->breakRequest(record, reader);
  DullFileManager::unuse(file);
  letGo(record);
}

// Withdraws a request that no worker has taken. Its callback is called twice; this is intentional.
// False if it runs or has run.
bool AsyncReads::cancelQueued(AsyncReadRequest* record, bool wasWaiting) {
  if (wasWaiting) {
    DullFile::perform(record, util::TENGINE_CANCELLED);
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

bool AsyncReads::isGivenUp(const AsyncReadRequest* record) {
  util::Lock lock(asyncLock());
  return record->cancelled || record->taken;
}

bool AsyncReads::mark(AsyncReadRequest* record, const FluviaFile* reader) {
  util::Lock lock(asyncLock());
  if (asyncRequests[record->requestId] != record || reader != record->reader) return false;
  record->cancelled = true;
  return true;
}

// --- closing -------------------------------------------------------------------------------------

// Returns a request of this handle that has not reached the buffer, held for the caller. Removes it
// from the list if it waited for a place. Null if there is none.
AsyncReadRequest* AsyncReads::holdUnanswered(const FluviaFile* reader, bool* wasWaiting) {
  util::Lock lock(asyncLock());
  for (AsyncReadRequest* record : asyncRequests) {
    if (record == nullptr || record->reader != reader || !record->isUnanswered()) continue;
    *wasWaiting = record->state == AsyncReadRequest::kWaiting;
    if (*wasWaiting) takeOffWaiting(record);
    ++record->holders;
    return record;
  }
  return nullptr;
}

void AsyncReads::answerAll(const FluviaFile* reader) {
  bool wasWaiting = false;
  while (AsyncReadRequest* record = holdUnanswered(reader, &wasWaiting)) {
    if (wasWaiting) {
      DullFile::perform(record, util::TENGINE_CANCELLED);
    } else if (!util::ThreadEngine::getInstance()->cancel(record)) {
      takeFromWorker(record);
    }
    letGo(record);
  }
}

// Answers a request whose worker waits for its turn to read; the worker then has nothing to do. A
// close must not wait for another handle's read.
void AsyncReads::takeFromWorker(AsyncReadRequest* record) {
  {
    util::Lock lock(asyncLock());
    if (!record->isUnanswered()) return;
    record->taken = true;
  }
  FLUVIA_LOG_AS("perform", 1, "cancel async read %d", record->requestId);
  callUser(record, ASYNC_CANCELLED, 0);
  clearSlot(record);
}

bool AsyncReads::isBusy(const FluviaFile* reader, bool callbacks) const {
  return std::any_of(
      records.begin(), records.end(),
      [reader, callbacks](const AsyncReadRequest& record) REQUIRES(asyncLock()) {
        return record.reader == reader &&
               (record.state == AsyncReadRequest::kReading || (callbacks && record.callers > 0));
      });
}

// beginCalling() wakes it for requests that read, endCalling() for those that call back. None is
// added meanwhile: ask() and beginReading() refuse a handle that is being closed.
void AsyncReads::waitForEnd(const FluviaFile* reader) {
  util::Lock lock(asyncLock());
  while (isBusy(reader, callbackDepth == 0)) asyncLock().wait(0);
}

}  // namespace webs
