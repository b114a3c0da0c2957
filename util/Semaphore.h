#ifndef FLUVIAFS_UTIL_SEMAPHORE_H_
#define FLUVIAFS_UTIL_SEMAPHORE_H_

#include <pthread.h>

#include "util/ThreadAnnotations.h"

namespace util {

// A mutex with one condition variable; the lock of every class that needs one.
//
// Threads:   any. Not recursive. Waiting is for a predicate, rechecked after every wake.
// Ownership: copied nowhere; must not be destroyed while a thread holds it or waits on it.
class CAPABILITY("mutex") Semaphore {
 public:
  Semaphore();
  virtual ~Semaphore();
  Semaphore(const Semaphore&) = delete;
  Semaphore& operator=(const Semaphore&) = delete;

  // Locks; may wait for the holder. Const because the lock is no part of what it guards.
  void syncBegin() const ACQUIRE();
  // Unlocks. Returns the status of the unlock, 0 on success.
  int syncEnd() const RELEASE();
  // Waits for a notify without a time limit; the argument is ignored.
  void wait(int unused) const REQUIRES(this);
  // Waits for a notify at most that many milliseconds of the monotonic clock. Returns false when
  // the time is over. For waits that must look again at something nobody announces.
  bool waitFor(int milliseconds) const REQUIRES(this);
  // Wake one waiter, or all of them; the argument is ignored.
  void notify(int unused) const;
  void notifyAll(int unused) const;

 private:
  mutable pthread_mutex_t mutex_;
  mutable pthread_cond_t condition_;
};

// Holds a Semaphore's lock for a scope; release() gives it up early, acquire() takes it again.
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

// Sleeps milliseconds / 1000 whole seconds. Anything below 1000 returns at once: the timer and the
// buffer queue rely on that truncation.
void delay(int milliseconds);

}  // namespace util

#endif  // FLUVIAFS_UTIL_SEMAPHORE_H_
