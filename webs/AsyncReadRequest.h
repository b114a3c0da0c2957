#ifndef FLUVIAFS_WEBS_ASYNCREADREQUEST_H_
#define FLUVIAFS_WEBS_ASYNCREADREQUEST_H_

#include "util/Semaphore.h"

namespace webs {

class DullFile;
class FluviaFile;

using ReadCallback = void (*)(int requestId, void* userData, int status, int readBytes);

// Status values of a completion callback.
enum AsyncStatus { ASYNC_FAILED = -1, ASYNC_DONE = 1, ASYNC_CANCELLED = 3, ASYNC_END_OF_FILE = 4 };

// The lock of the table of asynchronous reads (AsyncReads).
util::Semaphore& asyncLock();

// One asynchronous read.
//
// Threads:   the parameters and requestId are constant; the state is guarded by asyncLock().
// Ownership: owned by the table and counted by holders: one for the request itself until it is
//            finished, and one for each thread that uses it meanwhile. Holds a use of its file
//            until it is finished, and a use of its handle's object. The buffer is the caller's,
//            until the callback has been called.
struct AsyncReadRequest {
  char* buffer = nullptr;
  unsigned int size = 0;
  long long offset = 0;
  ReadCallback callback = nullptr;
  void* userData = nullptr;
  FluviaFile* reader = nullptr;
  // It was aborted before its read ended.
  bool cancelled GUARDED_BY(asyncLock()) = false;
  DullFile* file = nullptr;
  int requestId = 0;

  enum State {
    kWaiting,  // in the list of reads that wait for a place on the engine
    kQueued,   // a task of the engine
    kStarted,  // on a worker, not yet reading
    kReading,  // inside the buffer queue
    kCalling   // its callback is being called, or was
  };
  State state GUARDED_BY(asyncLock()) = kWaiting;
  // A close has answered it; no other thread calls back.
  bool taken GUARDED_BY(asyncLock()) = false;
  int callers GUARDED_BY(asyncLock()) = 0;  // threads that call back for it, or are about to
  int holders GUARDED_BY(asyncLock()) = 1;

  // No thread calls back yet, and the request is not inside the buffer queue.
  bool isUnanswered() const REQUIRES(asyncLock()) {
    return !taken && state != kReading && state != kCalling;
  }
};

}  // namespace webs

#endif  // FLUVIAFS_WEBS_ASYNCREADREQUEST_H_
