#ifndef FLUVIAFS_BENCH_COMMON_STATISTICS_H_
#define FLUVIAFS_BENCH_COMMON_STATISTICS_H_

#include <sys/resource.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

namespace bench {

using Clock = std::chrono::steady_clock;

// Durations of operations, in classes of at most 1/256 of their length. Millions of them take so
// little memory that it does not distort a peer's figure.
//
// Threads: one; add() of others' histograms when they are done.
class Histogram {
 public:
  void note(Clock::duration duration);
  void add(const Histogram& other);
  // Returns the upper end of the class below which that share (0 to 1) of the operations lies, in
  // microseconds.
  double quantile(double share) const;
  double longest() const { return static_cast<double>(longestNs) / 1000.0; }
  uint64_t count() const { return total; }

 private:
  static constexpr unsigned int kFine = 8;
  using Classes = std::array<uint32_t, 1 << kFine>;
  Classes* classesOf(size_t power);

  // Indexed by the power of two of the duration; null for an unused one.
  std::array<std::unique_ptr<Classes>, 64> powers;
  uint64_t total = 0;
  uint64_t longestNs = 0;
};

// What the process used from start() to stop(), printed as one line of JSON.
//
// Threads: one.
class Measurement {
 public:
  // Starts, or restarts.
  void start();
  // The first stop after a start counts.
  void stop();
  long voluntary() const { return after.ru_nvcsw - before.ru_nvcsw; }
  // bytes: read and checked. The peak of memory is that of the process so far. more: further
  // members, ", \"name\": number" each.
  void print(const Histogram& operations, long long bytes, const std::string& more) const;

 private:
  Clock::time_point began;
  Clock::time_point ended;
  bool stopped = false;
  struct rusage before = {};
  struct rusage after = {};
};

}  // namespace bench

#endif  // FLUVIAFS_BENCH_COMMON_STATISTICS_H_
