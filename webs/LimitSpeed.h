#ifndef FLUVIAFS_WEBS_LIMITSPEED_H_
#define FLUVIAFS_WEBS_LIMITSPEED_H_

#include "util/Relaxed.h"

namespace webs {

// Counts the bytes of one transfer, limits their average rate and computes that average. Rates are
// in bytes per second.
//
// Threads:   InitSpeed and Limitspeed on the transfer's thread; the others from any thread, without
//            a lock.
// Ownership: the watched flag is not owned.
class LimitSpeed {
 public:
  LimitSpeed();

  // Returns wall-clock milliseconds, truncated to 32 bits.
  static unsigned int GetTickCount();

  // Starts a new transfer: no bytes, average 0.
  void InitSpeed();
  // Sets the limit; 0 or below means no limit. Applies from the next chunk on.
  void setMaxSpeed(long long bytesPerSecond) { maxSpeed = bytesPerSecond; }
  long long getMaxSpeed() const { return maxSpeed; }
  // Counts size bytes and sleeps until the average since InitSpeed is at or below the limit. So
  // after a stall the transfer may run at full speed until the average is reached again. The sleep
  // lasts only while the watched flag is set.
  void Limitspeed(unsigned int size);
  // Computes the average since InitSpeed; changes nothing in the first millisecond.
  void CalAvgSpeed();
  long long GetAvgSpeed() const { return avgSpeed; }

  // Sets the flag that ends a sleep early when it is cleared; null: none. Transfer's thread.
  void watch(const util::Relaxed<bool>* flag) { goOn = flag; }

 private:
  void sleepMilliseconds(unsigned int milliseconds) const;

  util::Relaxed<long long> allSize;
  util::Relaxed<unsigned int> startTick;
  util::Relaxed<long long> maxSpeed;
  util::Relaxed<long long> avgSpeed;
  const util::Relaxed<bool>* goOn;
};

}  // namespace webs

#endif  // FLUVIAFS_WEBS_LIMITSPEED_H_
