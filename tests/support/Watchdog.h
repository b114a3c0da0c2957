#ifndef FLUVIAFS_TESTS_SUPPORT_WATCHDOG_H_
#define FLUVIAFS_TESTS_SUPPORT_WATCHDOG_H_

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

namespace support {

// How long a test waits at most for what takes no more than the given seconds: as long, or
// FLUVIA_PATIENCE of the environment times as long, where the processor is emulated.
double patience(double seconds);
// The same to wait with.
std::chrono::milliseconds patienceOf(int seconds);

// Aborts the test process with a description when its work makes no progress for that many seconds
// (of patience).
class Watchdog {
 public:
  Watchdog(int seconds, std::function<std::string()> describe);
  ~Watchdog();
  Watchdog(const Watchdog&) = delete;
  Watchdog& operator=(const Watchdog&) = delete;

  // Tells what the work is at now; starts the time anew.
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

// How long a wait of a test lasts at most, in seconds (of patience).
constexpr int kWaitSeconds = 20;

// Waits until condition() is true, looking again every millisecond. False after seconds (of
// patience).
bool eventually(const std::function<bool()>& condition, int seconds = kWaitSeconds);

// The seed of a randomised test: FLUVIA_SEED from the environment, else given.
unsigned int seedOr(unsigned int given);
// The same, else one that is drawn. Printed, so that a test that fails can be run again with it.
unsigned int printedSeed();

// count, times FLUVIA_MODEL_FACTOR of the environment (such as 0.5 or 10) where that is set: how
// much of what can be done any number of times is done. At least 1.
int scaled(int count);

}  // namespace support

#endif  // FLUVIAFS_TESTS_SUPPORT_WATCHDOG_H_
