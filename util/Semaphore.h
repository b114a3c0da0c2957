#ifndef FLUVIAFS_UTIL_SEMAPHORE_H_
#define FLUVIAFS_UTIL_SEMAPHORE_H_

#include <pthread.h>

#include "util/ThreadAnnotations.h"

namespace util {

// A mutex with one condition variable; the lock of every class that needs one.
//
// Threads:   any. Not recursive. Waits are for a predicate, which is rechecked after every wake-up.
// Ownership: not copyable; must not be destroyed while a thread holds it or waits on it.
class CAPABILITY("mutex") Semaphore {
 public:
  Semaphore();
  virtual ~Semaphore();
  Semaphore(const Semaphore&) = delete;
  Semaphore& operator=(const Semaphore&) = delete;

  // Locks; may wait for the holder. Const because the lock is not part of the state that it guards.
  void syncBegin() const ACQUIRE();
  // Unlocks. Returns the status of the unlock, 0 on success.
  int syncEnd() const RELEASE();
  // Waits for a notify without a time limit; the argument is ignored.
  void wait(int unused) const REQUIRES(this);
  // Waits for a notify for at most that many milliseconds of the monotonic clock. Returns false on
  // time-out. For waits on a state whose changes are not all notified.
  bool waitFor(int milliseconds) const REQUIRES(this);
  // Wake one waiter, or all of them; the argument is ignored.
  void notify(int unused) const;
  void notifyAll(int unused) const;

 private:
  mutable pthread_mutex_t mutex_;
  mutable pthread_cond_t condition_;
};

// Holds a Semaphore's lock for a scope; release() unlocks early, acquire() locks again.
class SCOPED_CAPABILITY Lock {
 public:
  explicit Lock(const Semaphore& semaphore) ACQUIRE(semaphore) : semaphore_(&semaphore) {
    semaphore.syncBegin();
  }
  ~Lock() RELEASE() {
    if (held_) semaphore_->syncEnd();
  }
  Lock(const Lock&) = delete;
  Lock& operator=(const Lock&) = delete;

  // Returns the status of the unlock, 0 on success.
  int release() RELEASE() {
    held_ = false;
    return semaphore_->syncEnd();
  }
  // Locks again after release().
  void acquire() ACQUIRE() {
    semaphore_->syncBegin();
    held_ = true;
  }

 private:
  const Semaphore* semaphore_;
  bool held_ = true;
};

// Sleeps milliseconds / 1000 whole seconds. A value below 1000 returns at once: the timer and the
// buffer queue rely on that truncation.
void delay(int milliseconds);

}  // namespace util

#endif  // FLUVIAFS_UTIL_SEMAPHORE_H_
