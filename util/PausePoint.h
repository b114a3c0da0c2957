#ifndef FLUVIAFS_UTIL_PAUSEPOINT_H_
#define FLUVIAFS_UTIL_PAUSEPOINT_H_

// Named places where a test can hold a thread to force an interleaving. Only builds with
// FLUVIA_PAUSE_POINTS compile them; elsewhere the macro generates no code.
#if defined(FLUVIA_PAUSE_POINTS)

namespace util {

using PauseHook = void (*)(const char* name);

// Installs the function called at every pause point; null removes it. Any thread.
void setPauseHook(PauseHook hook);
// Calls the installed hook with name. May wait as long as the hook does.
void pausePoint(const char* name);

}  // namespace util

#define FLUVIA_PAUSE_POINT(name) ::util::pausePoint(name)
#else
#define FLUVIA_PAUSE_POINT(name) static_cast<void>(0)
#endif

#endif  // FLUVIAFS_UTIL_PAUSEPOINT_H_
