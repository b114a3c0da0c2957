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

// Function object that adds up how far a series of samples moves: |x - previous| for each x.
class MovingAverageSum {
 public:
  explicit MovingAverageSum(long long previousSample) : sum(0), previous(previousSample) {}

  void operator()(long long x) {
    sum += x > previous ? x - previous : previous - x;
    previous = x;
  }
  long long getSum() const { return sum; }

 private:
  long long sum;
  long long previous;
};

}  // namespace webs

#endif  // FLUVIAFS_WEBS_MOVINGAVERAGE_H_
