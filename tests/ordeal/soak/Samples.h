#ifndef FLUVIAFS_TESTS_ORDEAL_SOAK_SAMPLES_H_
#define FLUVIAFS_TESTS_ORDEAL_SOAK_SAMPLES_H_

#include <string>
#include <vector>

namespace soak {

// The resources of the process at one time.
struct Sample {
  double seconds = 0;
  double processor = 0;  // seconds of processor time since the process' start
  long long memory = 0;  // resident bytes
  long long heap = 0;    // bytes of the heaps in use
  int descriptors = 0;
  int threads = 0;
};

Sample takeSample(double seconds);

// Judges memory over time, and the resources left when all is closed.
//
// Threads: one.
class Samples {
 public:
  // seconds: the length of the run, one sample each. Reserves their memory now, so that it does not
  // look like growth.
  explicit Samples(int seconds) { running.reserve(static_cast<size_t>(seconds) + 64); }

  void add(const Sample& sample) { running.push_back(sample); }
  // Taken while every handle is closed.
  void addQuiet(const Sample& sample) { quiet.push_back(sample); }

  // Returns an empty string if the last quarter's median of memory is at most 1 % and 512 KiB above
  // the second quarter's, descriptors and threads were the same whenever all was closed, and the
  // heaps then had at most 64 KiB more in use than the first time. Else returns the difference.
  std::string verdict() const;
  std::string summary() const;
  // Writes lines "seconds,processor,memory,heap,descriptors,threads,quiet". Returns false if the
  // file cannot be written.
  bool write(const std::string& path) const;

 private:
  // Median of memory of the samples in [from, to) quarters of the time.
  long long medianMemory(int from, int to) const;

  std::vector<Sample> running;
  std::vector<Sample> quiet;
};

}  // namespace soak

#endif  // FLUVIAFS_TESTS_ORDEAL_SOAK_SAMPLES_H_
