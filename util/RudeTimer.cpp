#include "util/RudeTimer.h"

#include <climits>

#include "util/Log.h"

namespace util {

namespace {
constexpr int kStepMs = 100;

// The longest period is not a multiple of a step: the count ends at it.
int oneStepAfter(int elapsedMs) {
  return elapsedMs > INT_MAX - kStepMs ? INT_MAX : elapsedMs + kStepMs;
}
}  // namespace

RudeTimer::RudeTimer(int period, bool repeats, void (*function)(void*))
    : periodMs(period),
      callback(function),
      callbackArg(nullptr),
      repeat(repeats),
      active(false),
      thread(&RudeTimer::run) {
  if (periodMs < kStepMs) {
    FLUVIA_LOG(0, "Error setting, the give timer time is too little:%d mseconds", periodMs);
  }
}

// The thread object is the last member: it is destroyed first and waits for a running count.
RudeTimer::~RudeTimer() { FLUVIA_LOG(0, "begin to stop timer thread"); }

void RudeTimer::start(void* arg) {
  Lock lock(*this);
  elapsedMs = 0;
  if (!active) {
    active = true;
    callbackArg = arg;
    thread.start(this);
  }
}

void RudeTimer::stop() {
  Lock lock(*this);
  active = false;
  thread.stop(false);
}

void* RudeTimer::run(void* timer) {
  RudeTimer* self = static_cast<RudeTimer*>(timer);
  FLUVIA_LOG(0, "RudeTimer run loop");
  for (;;) {
    {
      Lock lock(*self);
      if (!self->active) return nullptr;
    }
    while (self->elapsedMs < self->periodMs && self->active) {
      delay(kStepMs);
      // A start() meanwhile has restarted the count.
      const int before = self->elapsedMs;
      self->elapsedMs.replace(before, oneStepAfter(before));
    }
    if (!self->active) {
      FLUVIA_LOG(0, "Timer is interrupted:%d ~ %d", self->elapsedMs.get(), self->periodMs);
      return nullptr;
    }
    FLUVIA_LOG(0, "Timer out:%d ~ %d", self->elapsedMs.get(), self->periodMs);
    void* arg = nullptr;
    {
      Lock lock(*self);
      arg = self->callbackArg;
    }
    self->callback(arg);
    if (!self->repeat) {
      self->active = false;
      return nullptr;
    }
    // A repeating timer fires again at once until a start() restarts the count; without this check
    // its destructor would wait for ever.
    if (self->thread.needForceClose()) return nullptr;
  }
}

}  // namespace util
