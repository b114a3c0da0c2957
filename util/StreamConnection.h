#ifndef FLUVIAFS_UTIL_STREAMCONNECTION_H_
#define FLUVIAFS_UTIL_STREAMCONNECTION_H_

#include <pthread.h>

namespace util {

// The connection that streams into a buffer queue, or what stands in its place.
//
//   kNone       nothing streams: a reader that waits asks for a connection.
//   kAnnounced  a newer version was announced; the restart that begins it is on its way. An older
//               connection may still be ending.
//   kRunning    the connection of the present version delivers, or is being made.
//   kParked     it has delivered its range; its thread waits for a reader to want more.
//
// Announcing leads from every state to kAnnounced; there a version begins (kRunning) or is given up
// (kNone, from which a still newer one may begin). An end that announces nothing leads to kNone.
//
// Threads: none of its own; the queue's feedLock guards it.
struct StreamConnection {
  enum State { kNone, kAnnounced, kRunning, kParked };

  // A connection that its worker begins now, on this thread.
  static StreamConnection begun(int startedVersion) {
    StreamConnection connection;
    connection.state = kRunning;
    connection.version = startedVersion;
    connection.thread = pthread_self();
    return connection;
  }
  // True on the thread of the worker that began it.
  bool isOnThisThread() const { return pthread_equal(thread, pthread_self()) != 0; }

  State state = kNone;
  // The version that was begun last; -1 before the first. Older than the queue's while a newer one
  // is announced.
  int version = -1;
  // The worker's, for as long as it is inside the producer.
  pthread_t thread = pthread_t();
  // At least one byte was stored.
  bool stored = false;
  // The event of its end came from inside startStreaming.
  bool endReported = false;
  // It delivered more than was asked for. Only this queue's; the flag of the process may belong to
  // another one.
  bool overDelivered = false;
};

}  // namespace util

#endif  // FLUVIAFS_UTIL_STREAMCONNECTION_H_
