#ifndef FLUVIAFS_UTIL_THREADOBJECT_H_
#define FLUVIAFS_UTIL_THREADOBJECT_H_

#include <pthread.h>

#include "util/Relaxed.h"
#include "util/Semaphore.h"

namespace util {

// Thread entry; object is the ThreadObject. Runs its function once for each start request and
// sleeps in between.
void* runner(void* object);

// Reusable worker thread: created by the first start(), parked between runs, ended by stop(true).
//
// Threads:   start, stop and needExit from any thread; stop(true) not from the object's own thread.
//            The function runs without the lock.
// Ownership: the argument is not owned and must live until its run is over.
// Invariant: sleeping implies created; once forceClose is set no run begins.
class ThreadObject : public Semaphore {
 public:
  explicit ThreadObject(void* (*threadFunction)(void*));
  // Ends the thread as stop(true) does and waits for it.
  ~ThreadObject() override;

  // Requests one run with arg. Returns false if a run is already requested, if stop(true) has
  // closed the object, or if no thread could be created.
  bool start(void* arg) EXCLUDES(this);
  // Withdraws the request, so that needExit() becomes true. With force also ends the thread and
  // waits until it has left its loop; an object that was never started can still be started.
  void stop(bool force) EXCLUDES(this);
  // True unless another run was requested since the current one began.
  bool needExit() EXCLUDES(this);

  bool isAlive() const { return alive; }
  bool needForceClose() const { return forceClose; }
  void haveGone() { alive = false; }
  void haveSleeped() { sleeping = true; }
  void haveWakeup() { sleeping = false; }
  void haveDestoryed();

 private:
  friend void* runner(void* object);

  bool create() REQUIRES(this);
  // Waits for the next start() or a forced stop. Returns false if the thread must end.
  bool park() REQUIRES(this);
  // True if a thread runs or sleeps. created alone does not say so: it stays set after a failed
  // creation.
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
  // Tells a spurious wake-up of a parked thread from a real one. Unlike alive it survives a
  // stop(false): start() followed at once by stop(false) still runs once.
  bool wakeRequested GUARDED_BY(this);
};

}  // namespace util

#endif  // FLUVIAFS_UTIL_THREADOBJECT_H_
