#ifndef FLUVIAFS_WEBS_MOVINGAVERAGE_H_
#define FLUVIAFS_WEBS_MOVINGAVERAGE_H_

#include <list>

namespace webs {

// Smooths throughput samples (bytes per second). The more steadily the last samples moved in one
// direction, the less the newest sample is smoothed. Its weight is always at least one half, and
// two thirds once the series moves.
//
// Threads:   not locked; used on one thread.
class MovingAverage {
 public:
  // capacity: how many samples determine the weight.
  explicit MovingAverage(unsigned int capacity);

  // Adds a sample. Returns the new average.
  long long push(long long x);

 private:
  std::list<long long> samples;
  long long lastPopped;
  unsigned int capacity;
  long long average;
};

}  // namespace webs

#endif  // FLUVIAFS_WEBS_MOVINGAVERAGE_H_
