#ifndef FLUVIAFS_UTIL_BUFFERQUEUEPRODUCER_H_
#define FLUVIAFS_UTIL_BUFFERQUEUEPRODUCER_H_

#include "util/BufferQueueDataReceiver.h"

namespace util {

// Source of one resource: streams byte ranges of it into a receiver.
//
// Threads:   startStreaming runs on the buffer queue's worker, stopStreaming on any other thread.
//            isRandomAccess, getContentSize, setBreak, getStopWait and setStopWait may be called
//            from any thread at any time and never wait: the transfer thread may hold the
//            producer's lock for hours while it waits for a reader.
// Ownership: the buffer queue does not own its producer.
class BufferQueueProducer {
 public:
  // Sets where bytes and events go. Not owned.
  virtual void setOutput(BufferQueueDataReceiver* receiver) = 0;
  // Ends every transfer and closes the source.
  virtual void release() = 0;
  // Streams count bytes (0: to the end) from offset, tagged version. Returns either at once or when
  // the transfer has ended. Returns a negative value if nothing was started.
  virtual int startStreaming(int version, long long offset, long long count) = 0;
  // Ends the running transfer. Returns 0.
  virtual int stopStreaming() = 0;
  // True if the source can start at any offset.
  virtual bool isRandomAccess() = 0;
  // Size in bytes; 0 while unknown, UNKNOWN_CONTENT_SIZE if it cannot be determined.
  virtual long long getContentSize() = 0;
  virtual ~BufferQueueProducer() = default;
  // Signals the transfer that a reader no longer waits for it.
  virtual void setBreak() = 0;
  // True between setStopWait() and the stop that follows it.
  virtual bool getStopWait() = 0;
  // Announces a stop: the transfer may wait for that stop, which will not wait for the transfer.
  virtual void setStopWait() = 0;
};

}  // namespace util

#endif  // FLUVIAFS_UTIL_BUFFERQUEUEPRODUCER_H_
