#ifndef FLUVIAFS_UTIL_RUDETIMER_H_
#define FLUVIAFS_UTIL_RUDETIMER_H_

#include "util/Relaxed.h"
#include "util/Semaphore.h"
#include "util/ThreadObject.h"

namespace util {

// Coarse one-shot or repeating timer that calls back on a thread of its own.
//
// It counts in steps of 100 ms through delay(). delay() does not sleep below a second, so the count
// ends without a real wait. This is intentional.
//
// Threads:   start, stop and isActive from any thread; the callback runs on the timer's thread
//            without the lock and may call start and stop.
// Ownership: the callback's argument is not owned.
class RudeTimer : public Semaphore {
 public:
  // periodMs below 100 is logged and used as it is.
  RudeTimer(int periodMs, bool repeat, void (*callback)(void*));
  // Ends the timer's thread and waits for it; a running count first runs to its end and calls back.
  ~RudeTimer() override;

  // Starts counting. On an active timer this restarts the count and keeps the argument.
  void start(void* arg) EXCLUDES(this);
  // Stops the count; no callback follows unless it has begun.
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
