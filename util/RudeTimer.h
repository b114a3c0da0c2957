#ifndef FLUVIAFS_UTIL_RUDETIMER_H_
#define FLUVIAFS_UTIL_RUDETIMER_H_

#include "util/Relaxed.h"
#include "util/Semaphore.h"
#include "util/ThreadObject.h"

namespace util {

// Coarse one-shot or repeating timer that calls back on a thread of its own.
//
// It counts in steps of 100 ms through delay(), which does not sleep below a second: the count runs
// through without real waiting. That is wanted.
//
// Threads:   start, stop and isActive from any thread; the callback runs on the timer's thread
//            without the lock and may call start and stop.
// Ownership: the callback's argument is not owned.
class RudeTimer : public Semaphore {
 public:
  // periodMs below 100 is reported and kept.
  RudeTimer(int periodMs, bool repeat, void (*callback)(void*));
  // Ends the timer's thread and waits for it; a count under way runs out and calls back first.
  ~RudeTimer() override;

  // Starts counting. On an active timer only the count begins again, the argument stays.
  void start(void* arg) EXCLUDES(this);
  // Interrupts the count; no callback follows unless it has begun.
  void stop() EXCLUDES(this);
  bool isActive() const { return active; }
  // Thread function; timer is the RudeTimer. Returns null.
  static void* run(void* timer);

 private:
  int periodMs;
  Relaxed<int> elapsedMs;
  void (*callback)(void*);
  void* callbackArg GUARDED_BY(this);
  bool repeat;
  Relaxed<bool> active;
  ThreadObject thread;
};

}  // namespace util

#endif  // FLUVIAFS_UTIL_RUDETIMER_H_
