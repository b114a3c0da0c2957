#ifndef FLUVIAFS_WEBS_ASYNCREADS_H_
#define FLUVIAFS_WEBS_ASYNCREADS_H_

#include <list>

#include "util/NeverDestroyed.h"
#include "util/Semaphore.h"
#include "webs/AsyncReadRequest.h"

namespace webs {

// Requests that may be outstanding in the process: their ids are 1 to that.
constexpr int kMaxRequests = 511;

// The asynchronous reads of the process: the table of their ids, and the order in which they get a
// place on the thread engine.
//
// The engine's six workers also restart streams. A worker that reads may wait for such a restart,
// so at most five requests have a place on the engine at a time, and one of each file: a second one
// would only wait for the file lock. The others wait here, in order.
//
// Threads:   any. The lock is a leaf: no callback, no read and no other lock is under it. Whoever
//            waits on its condition waits for a read to leave the buffer queue or for a callback to
//            return; both are announced.
// Ownership: owns the records of all requests. Never destroyed, like the engine's workers.
// Invariant: asyncRequests[id] is null or the record of that id. A record is in waiting exactly
//            while its state is kWaiting; at most one of a file is on the engine and not yet
//            calling back.
class AsyncReads {
 public:
  // Results of a read that no caller of the C API sees.
  enum Refusal { kTakenByClose = 1, kCancelledBefore = 2 };

  static AsyncReads& instance();

  // Queues a read for the thread engine: what the asker says of it stands in wanted. Writes its id
  // to *requestId and *issued (may be null) before the callback can run. -4 when all ids are in
  // use, the handle is being closed, or the engine has no worker to spare.
  int ask(const AsyncReadRequest& wanted, int* requestId, int* issued) EXCLUDES(asyncLock());

  // The way of a request over its worker: it starts; it begins to read, which is refused when a
  // close has answered it or an abort has met it (false, *refusal says which); its read has ended
  // with a result, or was refused, and it is called back.
  void start(AsyncReadRequest* record) EXCLUDES(asyncLock());
  bool beginReading(AsyncReadRequest* record, int* refusal) EXCLUDES(asyncLock());
  void endReading(AsyncReadRequest* record, int result, unsigned int readBytes)
      EXCLUDES(asyncLock());
  // It was withdrawn before a worker took it: calls back.
  void withdrawn(AsyncReadRequest* record) EXCLUDES(asyncLock());

  // Cancels a request of any handle; one that no worker has taken is called back twice.
  void cancel(int requestId, FluviaFile* reader) EXCLUDES(asyncLock());
  // True once a request was cancelled or answered by a close.
  bool isGivenUp(const AsyncReadRequest* record) EXCLUDES(asyncLock());
  // Marks a request of that handle as cancelled. False when it is another handle's or finished.
  bool mark(AsyncReadRequest* record, const FluviaFile* reader) EXCLUDES(asyncLock());

  // For a handle that is being closed. Answers its requests that do not read yet.
  void answerAll(const FluviaFile* reader) EXCLUDES(asyncLock());
  // Waits until none of its requests reads and, unless this is inside a callback, none is called
  // back: other callbacks may be waiting for this one.
  void waitForEnd(const FluviaFile* reader) EXCLUDES(asyncLock());

 private:
  friend util::Semaphore& asyncLock();
  friend class util::NeverDestroyed<AsyncReads>;

  AsyncReads();

  int lowestFreeId() const REQUIRES(asyncLock());
  bool isOnEngine(const DullFile* file) const REQUIRES(asyncLock());
  bool isBusy(const FluviaFile* reader, bool callbacks) const REQUIRES(asyncLock());
  void takeOffWaiting(AsyncReadRequest* record) REQUIRES(asyncLock());
  void handOver() EXCLUDES(asyncLock());
  AsyncReadRequest* nextToHandOver() EXCLUDES(asyncLock());
  static bool makeTask(AsyncReadRequest* record);
  void refuse(AsyncReadRequest* record) EXCLUDES(asyncLock());
  AsyncReadRequest* hold(int requestId, bool* wasWaiting) EXCLUDES(asyncLock());
  AsyncReadRequest* holdUnanswered(const FluviaFile* reader, bool* wasWaiting)
      EXCLUDES(asyncLock());
  bool cancelQueued(AsyncReadRequest* record, bool wasWaiting) EXCLUDES(asyncLock());
  void takeFromWorker(AsyncReadRequest* record) EXCLUDES(asyncLock());
  bool beginCalling(AsyncReadRequest* record) REQUIRES(asyncLock());
  void endCalling(AsyncReadRequest* record) REQUIRES(asyncLock());
  void leave(AsyncReadRequest* record) EXCLUDES(asyncLock());
  void finish(AsyncReadRequest* record) EXCLUDES(asyncLock());
  void clearSlot(AsyncReadRequest* record) EXCLUDES(asyncLock());
  void letGo(AsyncReadRequest* record) EXCLUDES(asyncLock());

  util::Semaphore lock_;
  AsyncReadRequest* asyncRequests[kMaxRequests + 1] GUARDED_BY(asyncLock());  // 0 is never used
  std::list<AsyncReadRequest> records GUARDED_BY(asyncLock());   // also those that have no id now
  std::list<AsyncReadRequest*> waiting GUARDED_BY(asyncLock());  // for a place on the engine
  std::list<AsyncReadRequest*> onEngine
      GUARDED_BY(asyncLock());  // have one until they are finished
};

}  // namespace webs

#endif  // FLUVIAFS_WEBS_ASYNCREADS_H_
