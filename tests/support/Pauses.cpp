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

struct Point {
  State state = State::kReleased;
  int holds = 0;  // times that it was held: a thread that was released may still have to wake
};

std::mutex lock;
std::condition_variable changed;
std::map<std::string, Point> points;

void pause(const char* name) {
  std::unique_lock<std::mutex> guard(lock);
  const auto point = points.find(name);
  if (point == points.end() || point->second.state != State::kWanted) return;
  point->second.state = State::kHeld;
  const int hold = point->second.holds;
  changed.notify_all();
  changed.wait_for(guard, patienceOf(kHoldSeconds), [&] {
    const auto now = points.find(name);
    return now == points.end() || now->second.state == State::kReleased ||
           now->second.holds != hold;
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
  points[point].state = State::kWanted;
  ++points[point].holds;
}

bool Pauses::reached(const std::string& point) {
  std::unique_lock<std::mutex> guard(lock);
  return changed.wait_for(guard, patienceOf(kReachSeconds),
                          [&] { return points[point].state == State::kHeld; });
}

void Pauses::release(const std::string& point) {
  std::lock_guard<std::mutex> guard(lock);
  points[point].state = State::kReleased;
  changed.notify_all();
}

}  // namespace support

#endif
