#include "tests/support/Delays.h"

#include "util/PausePoint.h"

#if defined(FLUVIA_PAUSE_POINTS)

#include <unistd.h>

#include <chrono>
#include <random>
#include <thread>

namespace support {

namespace {

void delay(const char*) {
  thread_local std::minstd_rand random(static_cast<unsigned int>(gettid()));
  const unsigned long drawn = random() % 16;
  if (drawn < 4) std::this_thread::sleep_for(std::chrono::microseconds(drawn * drawn * 300));
}

}  // namespace

Delays::Delays() { util::setPauseHook(&delay); }
Delays::~Delays() { util::setPauseHook(nullptr); }

}  // namespace support

#else

namespace support {

Delays::Delays() = default;
Delays::~Delays() = default;

}  // namespace support

#endif
