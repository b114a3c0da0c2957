#ifndef FLUVIAFS_UTIL_BUFFERQUEUEDATARECEIVER_H_
#define FLUVIAFS_UTIL_BUFFERQUEUEDATARECEIVER_H_

namespace util {

// Events that a producer reports with notifyStreamException().
enum StreamEvent {
  STREAM_NORMAL = 0,             // connection established; size and seekability are known
  STREAM_ERROR = 1,              // connection error
  STREAM_DEAD = 2,               // connection died; restart where writing stopped
  EVENT_STREAM_PARTIAL_END = 3,  // the connection delivered its range and ended
  STREAM_TIMEOUT = 4,            // connection timed out
  STREAM_FILE_NOT_FOUND = 5,     // resource not found
  STREAM_NOT_AVAILABLE = 6,      // resource not available; no retry
  STREAM_CANCELED = 7            // producer stopped on request
};

// Size of a resource whose length cannot be determined.
constexpr long long UNKNOWN_CONTENT_SIZE = 0x0FFFFFFFFFFFFFFFLL;

// Receiver of the bytes and events of one producer.
//
// Threads:   called on the producer's transfer thread; either call may wait there for a reader.
// Ownership: a producer does not own its receiver; the receiver outlives every transfer.
class BufferQueueDataReceiver {
 public:
  // Takes size bytes of the transfer tagged version. Returns 1 to continue, 0 to stop the transfer.
  virtual int streamIn(void* data, unsigned int size, int version) = 0;
  // Reports a StreamEvent of the transfer. EVENT_STREAM_PARTIAL_END may park the thread until a
  // reader needs data again.
  virtual void notifyStreamException(int event) = 0;
  virtual ~BufferQueueDataReceiver() = default;
};

}  // namespace util

#endif  // FLUVIAFS_UTIL_BUFFERQUEUEDATARECEIVER_H_
