#include "webs/LimitSpeed.h"

#include <unistd.h>

#include <algorithm>

#include "util/Log.h"
#include "webs/WallClock.h"

namespace webs {

namespace {
// A stop waits for the transfer: it must wait for at most one slice of a sleep.
constexpr long long kSliceMicroseconds = 20000;
}  // namespace

LimitSpeed::LimitSpeed() : goOn(nullptr) {}

unsigned int LimitSpeed::GetTickCount() {
  const struct timeval now = wallClock();
  const long long millis = static_cast<long long>(now.tv_sec) * 1000 + now.tv_usec / 1000;
  return static_cast<unsigned int>(static_cast<unsigned long long>(millis) & 0xFFFFFFFFU);
}

void LimitSpeed::InitSpeed() {
  allSize = 0;
  startTick = GetTickCount();
  avgSpeed = 0;
}

void LimitSpeed::Limitspeed(unsigned int size) {
  const long long all = allSize += static_cast<long long>(size);
  // Read once: the limit may be removed meanwhile.
  const long long cap = maxSpeed;
  if (cap <= 0) return;
  const unsigned int actual = GetTickCount() - startTick;
  const auto want = static_cast<unsigned int>(all * 1000 / cap);
  FLUVIA_LOG(2, "allsize:%lld, want_ms  = %lu, actual_ms = %lu", all,
             static_cast<unsigned long>(want), static_cast<unsigned long>(actual));
  if (want > actual) sleepMilliseconds(want - actual);
}

void LimitSpeed::sleepMilliseconds(unsigned int milliseconds) const {
  long long left = static_cast<long long>(milliseconds) * 1000;
  while (left > 0 && (goOn == nullptr || goOn->get())) {
    const long long slice = std::min(left, kSliceMicroseconds);
    usleep(static_cast<useconds_t>(slice));
    left -= slice;
  }
}

void LimitSpeed::CalAvgSpeed() {
  const unsigned int elapsed = GetTickCount() - startTick;
  if (elapsed == 0) return;
  avgSpeed = allSize.get() * 1000 / static_cast<long long>(elapsed);
}

}  // namespace webs
