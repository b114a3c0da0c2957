#ifndef FLUVIAFS_WEBS_ASYNCREADREQUEST_H_
#define FLUVIAFS_WEBS_ASYNCREADREQUEST_H_

namespace webs {

class DullFile;
class FluviaFile;

using ReadCallback = void (*)(int requestId, void* userData, int status, int readBytes);

// Status values of a completion callback.
enum AsyncStatus { ASYNC_FAILED = -1, ASYNC_DONE = 1, ASYNC_CANCELLED = 3, ASYNC_END_OF_FILE = 4 };

// One asynchronous read.
//
// Threads:   everything below requestId, and cancelled, under the lock of the request table.
// Ownership: counted by holders: the request itself until it is finished, and whoever looks at it
//            meanwhile. Holds a use of its file until it is finished, and of its handle's object.
//            The buffer is the caller's, until the callback has been called.
struct AsyncReadRequest {
  char* buffer = nullptr;
  unsigned int size = 0;
  long long offset = 0;
  ReadCallback callback = nullptr;
  void* userData = nullptr;
  FluviaFile* reader = nullptr;
  bool cancelled = false;  // an abort met it before its read was over
  DullFile* file = nullptr;
  int requestId = 0;

  enum State {
    kWaiting,  // in the list of reads that wait for a place on the engine
    kQueued,   // a task of the engine
    kStarted,  // on a worker, not yet reading
    kReading,  // inside the buffer queue
    kCalling   // its callback is being called, or was
  };
  State state = kWaiting;
  bool handed = false;  // has a place on the engine
  bool taken = false;   // a close has answered it; nobody else calls back
  int holders = 1;

  // Nobody calls back yet, and it is not inside the buffer queue.
  bool isUnanswered() const { return !taken && state != kReading && state != kCalling; }
};

}  // namespace webs

#endif  // FLUVIAFS_WEBS_ASYNCREADREQUEST_H_
