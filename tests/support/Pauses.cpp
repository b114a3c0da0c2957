#include "tests/support/Pauses.h"

#include "tests/support/Watchdog.h"
#include "util/PausePoint.h"

#if defined(FLUVIA_PAUSE_POINTS)

#include <condition_variable>
#include <map>
#include <mutex>

#include "tests/support/Watchdog.h"

namespace support {

namespace {

// A thread that is never released continues after this time, so that the test fails and ends.
constexpr int kHoldSeconds = 40;
constexpr int kReachSeconds = 20;

enum class State { kWanted, kHeld, kReleased };

std::mutex lock;
std::condition_variable changed;
std::map<std::string, State> points;

void pause(const char* name) {
  std::unique_lock<std::mutex> guard(lock);
  const auto point = points.find(name);
  if (point == points.end() || point->second != State::kWanted) return;
  point->second = State::kHeld;
  changed.notify_all();
  changed.wait_for(guard, patienceOf(kHoldSeconds), [&] {
    const auto now = points.find(name);
    return now == points.end() || now->second == State::kReleased;
  });
}

}  // namespace

Pauses::Pauses() { util::setPauseHook(pause); }

Pauses::~Pauses() {
  util::setPauseHook(nullptr);
  std::lock_guard<std::mutex> guard(lock);
  points.clear();
  changed.notify_all();
}

void Pauses::holdAt(const std::string& point) {
  std::lock_guard<std::mutex> guard(lock);
  points[point] = State::kWanted;
}

bool Pauses::reached(const std::string& point) {
  std::unique_lock<std::mutex> guard(lock);
  return changed.wait_for(guard, patienceOf(kReachSeconds),
                          [&] { return points[point] == State::kHeld; });
}

void Pauses::release(const std::string& point) {
  std::lock_guard<std::mutex> guard(lock);
  points[point] = State::kReleased;
  changed.notify_all();
}

}  // namespace support

#endif
