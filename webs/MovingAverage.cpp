#include "webs/MovingAverage.h"

#include <algorithm>

namespace webs {

namespace {
// Weights of the previous average: for a flat series, and the maximum for a moving one.
constexpr double kFlatWeight = 0.5;
constexpr double kMovingWeight = 0.33;
}  // namespace

MovingAverage::MovingAverage(unsigned int sampleCapacity)
    : lastPopped(0), capacity(sampleCapacity), average(0) {}

long long MovingAverage::push(long long x) {
  if (!samples.empty() && samples.size() >= capacity) {
    lastPopped = samples.front();
    samples.pop_front();
  }
  samples.push_back(x);

  const auto extremes = std::minmax_element(samples.begin(), samples.end());
  const long long range = *extremes.second - *extremes.first;
  const long long path =
      std::for_each(samples.begin(), samples.end(), MovingAverageSum(lastPopped)).getSum();
  const double alpha = path == 0
                           ? kFlatWeight
                           : static_cast<double>(range) / static_cast<double>(path) * kMovingWeight;
  average = static_cast<long long>(static_cast<double>(average) * alpha +
                                   (1 - alpha) * static_cast<double>(x));
  return average;
}

}  // namespace webs
