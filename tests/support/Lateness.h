#ifndef FLUVIAFS_TESTS_SUPPORT_LATENESS_H_
#define FLUVIAFS_TESTS_SUPPORT_LATENESS_H_

#include <atomic>
#include <thread>

namespace support {

// How late this machine wakes a thread at most, while the object exists: sleeps of 1 ms on a thread
// of its own. A limit of time that is to hold on a busy machine too allows for it.
class Lateness {
 public:
  Lateness() : thread([this] { measure(); }) {}
  ~Lateness() { stop(); }
  Lateness(const Lateness&) = delete;
  Lateness& operator=(const Lateness&) = delete;

  // Ends the measurement. Returns its result, in milliseconds.
  double stop();

 private:
  void measure();

  std::atomic<bool> over{false};
  double most = 0;  // written by the thread, read after its end
  std::thread thread;
};

}  // namespace support

#endif  // FLUVIAFS_TESTS_SUPPORT_LATENESS_H_
