#ifndef FLUVIAFS_WEBS_MOVINGAVERAGESUM_H_
#define FLUVIAFS_WEBS_MOVINGAVERAGESUM_H_

namespace webs {

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

#endif  // FLUVIAFS_WEBS_MOVINGAVERAGESUM_H_
