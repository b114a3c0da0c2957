#ifndef FLUVIAFS_TESTS_SUPPORT_WATCHDOG_H_
#define FLUVIAFS_TESTS_SUPPORT_WATCHDOG_H_

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

namespace support {

// The longest time that a test waits for work of the given seconds: these seconds, times
// FLUVIA_PATIENCE of the environment if the processor is emulated.
double patience(double seconds);
// The same as a duration.
std::chrono::milliseconds patienceOf(int seconds);

// Aborts the test process with a description if its work makes no progress for that many seconds
// (of patience).
class Watchdog {
 public:
  Watchdog(int seconds, std::function<std::string()> describe);
  ~Watchdog();
  Watchdog(const Watchdog&) = delete;
  Watchdog& operator=(const Watchdog&) = delete;

  // Names the current step and restarts the time.
  void at(const std::string& step);

 private:
  void watch();

  const std::chrono::seconds limit;
  std::function<std::string()> describe;
  std::mutex lock;
  std::condition_variable changed;
  std::chrono::steady_clock::time_point since;
  std::string step;
  bool ended = false;
  std::thread thread;
};

// The limit of a test's wait, in seconds (of patience).
constexpr int kWaitSeconds = 20;

// Waits until condition() is true, checking every millisecond. Returns false after seconds (of
// patience).
bool eventually(const std::function<bool()>& condition, int seconds = kWaitSeconds);

// The seed of a randomised test: FLUVIA_SEED from the environment, else given.
unsigned int seedOr(unsigned int given);
// The same, else a random one. Prints it, so that a failed test can be repeated with it.
unsigned int printedSeed();

// count, times FLUVIA_MODEL_FACTOR of the environment (such as 0.5 or 10) if that is set. Scales
// the number of repetitions of a test. At least 1.
int scaled(int count);

}  // namespace support

#endif  // FLUVIAFS_TESTS_SUPPORT_WATCHDOG_H_
