#ifndef FLUVIAFS_UTIL_THREADOBJECT_H_
#define FLUVIAFS_UTIL_THREADOBJECT_H_

#include <pthread.h>

#include "util/Relaxed.h"
#include "util/Semaphore.h"

namespace util {

// Thread entry of a ThreadObject, given as argument: runs its function once for each start request
// and sleeps in between.
void* runner(void* object);

// Reusable worker thread: created by the first start(), parked between runs, ended by stop(true).
//
// Threads:   start, stop and needExit from any thread; stop(true) not from the object's own one.
//            The function runs without the lock.
// Ownership: the argument is not owned and must live until its run is over.
// Invariant: sleeping implies created; once forceClose is set no run begins.
class ThreadObject : public Semaphore {
 public:
  explicit ThreadObject(void* (*threadFunction)(void*));
  // Ends the thread as stop(true) does and waits for it.
  ~ThreadObject() override;

  // Requests one run with arg. False when a run is requested already, when the object was closed by
  // force, or when no thread could be created.
  bool start(void* arg) EXCLUDES(this);
  // Withdraws the request, so that needExit() turns true. With force also ends the thread and waits
  // until it has left its loop; an object that was never started stays startable.
  void stop(bool force) EXCLUDES(this);
  // True unless another run was requested since the present one began.
  bool needExit() EXCLUDES(this);

  bool isAlive() const { return alive; }
  bool needForceClose() const { return forceClose; }
  void haveGone() { alive = false; }
  void haveSleeped() { sleeping = true; }
  void haveWakeup() { sleeping = false; }
  void haveDestoryed();

 private:
  friend void* runner(void* object);

  // Waits for the next start() or a forced stop. False when the thread is to end.
  bool park() REQUIRES(this);
  // A thread runs or sleeps: a failed creation leaves created set although there is none.
  bool threadExists() const { return created && createResult == 0; }
  void waitUntilGone() REQUIRES(this);

  void* (*threadFunction)(void*);
  void* threadArg;
  Relaxed<bool> alive;
  Relaxed<bool> forceClose;
  Relaxed<bool> created;
  Relaxed<bool> sleeping;
  pthread_t thread;
  Relaxed<int> createResult;
  // Tells a parked thread that its wake-up was meant. Not alive: start() followed at once by
  // stop(false) still yields its one run.
  bool wakeRequested GUARDED_BY(this);
};

}  // namespace util

#endif  // FLUVIAFS_UTIL_THREADOBJECT_H_
