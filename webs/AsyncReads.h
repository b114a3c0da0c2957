#ifndef FLUVIAFS_WEBS_ASYNCREADS_H_
#define FLUVIAFS_WEBS_ASYNCREADS_H_

#include <list>

#include "util/NeverDestroyed.h"
#include "util/Semaphore.h"
#include "webs/AsyncReadRequest.h"

namespace webs {

// The most requests that may be outstanding in the process: ids run from 1 to kMaxRequests.
constexpr int kMaxRequests = 511;

// The asynchronous reads of the process: the table of their ids, and the order in which they get a
// place on the thread engine.
//
// The engine's six workers also restart streams. A worker that reads may wait for such a restart,
// so at most five requests have a place on the engine at a time. Each file has at most one of them:
// a second one would only wait for the file lock. The others wait here, in order.
//
// Threads:   any. The lock is a leaf: no callback, no read and no other lock runs under it. A
//            thread that waits on its condition waits for a read to leave the buffer queue or for a
//            callback to return; both notify it.
// Ownership: owns the records of all requests. Never destroyed, like the engine's workers.
// Invariant: asyncRequests[id] is null or the record of that id. A record is in waiting exactly
//            while its state is kWaiting. At most one request of a file is on the engine and not
//            yet calling back.
class AsyncReads {
 public:
  // Internal results of a read; no caller of the C API sees them.
  enum Refusal { kTakenByClose = 1, kCancelledBefore = 2 };

  static AsyncReads& instance();

  // Queues a read for the thread engine; wanted holds its parameters. Writes its id to *requestId
  // and *issued (may be null) before the callback can run. Returns -4 if all ids are in use, the
  // handle is being closed, or the engine has no worker to spare.
  int ask(const AsyncReadRequest& wanted, int* requestId, int* issued) EXCLUDES(asyncLock());

  // The steps of a request on its worker. beginReading() returns false if a close has answered the
  // request or an abort has met it; *refusal says which. endReading() takes the result of the read,
  // or the refusal, and calls back.
  void start(AsyncReadRequest* record) EXCLUDES(asyncLock());
  bool beginReading(AsyncReadRequest* record, int* refusal) EXCLUDES(asyncLock());
  void endReading(AsyncReadRequest* record, int result, unsigned int readBytes)
      EXCLUDES(asyncLock());
  // Calls back for a request that was withdrawn before a worker took it.
  void withdrawn(AsyncReadRequest* record) EXCLUDES(asyncLock());

  // Cancels a request of any handle. If no worker has taken it, it is called back twice.
  void cancel(int requestId, FluviaFile* reader) EXCLUDES(asyncLock());
  // True once a request was cancelled or answered by a close.
  bool isGivenUp(const AsyncReadRequest* record) EXCLUDES(asyncLock());
  // Marks a request of that handle as cancelled. Returns false if it belongs to another handle or
  // is finished.
  bool mark(AsyncReadRequest* record, const FluviaFile* reader) EXCLUDES(asyncLock());

  // For a handle that is being closed: answers its requests that have not begun to read.
  void answerAll(const FluviaFile* reader) EXCLUDES(asyncLock());
  // Waits until none of its requests reads. Outside of a callback also waits until none of them is
  // called back; inside a callback that could deadlock.
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
  std::list<AsyncReadRequest> records GUARDED_BY(asyncLock());   // including those without an id
  std::list<AsyncReadRequest*> waiting GUARDED_BY(asyncLock());  // for a place on the engine
  std::list<AsyncReadRequest*> onEngine
      GUARDED_BY(asyncLock());  // have a place until they are finished
};

}  // namespace webs

#endif  // FLUVIAFS_WEBS_ASYNCREADS_H_
