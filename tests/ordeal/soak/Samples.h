#ifndef FLUVIAFS_TESTS_ORDEAL_SOAK_SAMPLES_H_
#define FLUVIAFS_TESTS_ORDEAL_SOAK_SAMPLES_H_

#include <string>
#include <vector>

namespace soak {

// What the process holds at a time.
struct Sample {
  double seconds = 0;
  double processor = 0;  // seconds of processor time, from the process' start on
  long long memory = 0;  // resident bytes
  long long heap = 0;    // bytes of the heaps that are in use
  int descriptors = 0;
  int threads = 0;
};

Sample takeSample(double seconds);

// Judges memory over time and what is left when all is closed.
//
// Threads: one.
class Samples {
 public:
  // seconds: how long it will take, a sample each; they shall not look like memory that is kept.
  explicit Samples(int seconds) { running.reserve(static_cast<size_t>(seconds) + 64); }

  void add(const Sample& sample) { running.push_back(sample); }
  // Taken while every handle is closed.
  void addQuiet(const Sample& sample) { quiet.push_back(sample); }

  // Empty when the last quarter's median of memory lies at most 1 % and 512 KiB above the second
  // quarter's, and whenever all was closed descriptors and threads were the same and the heaps had
  // at most 64 KiB more in use than the first time; else what is not so.
  std::string verdict() const;
  std::string summary() const;
  // Lines "seconds,processor,memory,heap,descriptors,threads,quiet". False when the file cannot be
  // written.
  bool write(const std::string& path) const;

 private:
  // Median of memory of the samples in [from, to) quarters of the time.
  long long medianMemory(int from, int to) const;

  std::vector<Sample> running;
  std::vector<Sample> quiet;
};

}  // namespace soak

#endif  // FLUVIAFS_TESTS_ORDEAL_SOAK_SAMPLES_H_
