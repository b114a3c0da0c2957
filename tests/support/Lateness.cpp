#include "tests/support/Lateness.h"

#include <algorithm>
#include <chrono>

namespace support {

double Lateness::stop() {
  over = true;
  if (thread.joinable()) thread.join();
  return most;
}

void Lateness::measure() {
  using Clock = std::chrono::steady_clock;
  while (!over) {
    const auto due = Clock::now() + std::chrono::milliseconds(1);
    std::this_thread::sleep_until(due);
    most = std::max(most, std::chrono::duration<double, std::milli>(Clock::now() - due).count());
  }
}

}  // namespace support
