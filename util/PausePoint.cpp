#include "util/PausePoint.h"

#if defined(FLUVIA_PAUSE_POINTS)

#include <atomic>

namespace util {

namespace {
std::atomic<PauseHook> pauseHook{nullptr};
}  // namespace

void setPauseHook(PauseHook hook) { pauseHook.store(hook); }

void pausePoint(const char* name) {
  if (PauseHook hook = pauseHook.load()) hook(name);
}

}  // namespace util

#endif
