#ifndef FLUVIAFS_UTIL_STREAMCONNECTION_H_
#define FLUVIAFS_UTIL_STREAMCONNECTION_H_

#include <pthread.h>

namespace util {

// State of the connection that streams into a buffer queue.
//
//   kNone       nothing streams: a reader that waits asks for a connection.
//   kAnnounced  a newer version was announced and its restart is pending. An older
//               connection may still be ending.
//   kRunning    the connection of the current version delivers or is being established.
//   kParked     the connection has delivered its range; its thread waits until a reader needs more.
//
// Every state can change to kAnnounced. From there a version begins (kRunning) or is abandoned
// (kNone, from which a still newer version may begin). An end that announces no restart leads to
// kNone.
//
// Threads: none of its own; the queue's feedLock guards it.
struct StreamConnection {
  enum State { kNone, kAnnounced, kRunning, kParked };

  // A connection that its worker starts now, on this thread.
  static StreamConnection begun(int startedVersion) {
    StreamConnection connection;
    connection.state = kRunning;
    connection.version = startedVersion;
    connection.thread = pthread_self();
    return connection;
  }
  // True on the thread of the worker that started it.
  bool isOnThisThread() const { return pthread_equal(thread, pthread_self()) != 0; }

  State state = kNone;
  // The version that was started last; -1 before the first. Older than the queue's version while a
  // newer one is announced.
  int version = -1;
  // The worker's thread, while the worker is inside the producer.
  pthread_t thread = pthread_t();
  // At least one byte was stored.
  bool stored = false;
  // startStreaming itself reported the event of its end.
  bool endReported = false;
  // It delivered more than was asked for. This flag is per queue; the static flag
  // overDeliveryCancel may refer to another queue.
  bool overDelivered = false;
};

}  // namespace util

#endif  // FLUVIAFS_UTIL_STREAMCONNECTION_H_
