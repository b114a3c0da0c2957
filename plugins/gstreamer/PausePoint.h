#ifndef FLUVIAFS_PLUGINS_GSTREAMER_PAUSEPOINT_H_
#define FLUVIAFS_PLUGINS_GSTREAMER_PAUSEPOINT_H_

// Named places where a test can hold a worker of the element. Only builds with FLUVIA_PAUSE_POINTS
// compile them; elsewhere the macro generates no code. The library does not export its own ones.
#if defined(FLUVIA_PAUSE_POINTS)
// Defined only by test programs that hold threads.
extern "C" __attribute__((weak)) void fluvia_src_pause_point(const char* name);

#define FLUVIA_SRC_PAUSE_POINT(name)                                     \
  do {                                                                   \
    if (fluvia_src_pause_point != nullptr) fluvia_src_pause_point(name); \
  } while (false)
#else
#define FLUVIA_SRC_PAUSE_POINT(name) static_cast<void>(0)
#endif

#endif  // FLUVIAFS_PLUGINS_GSTREAMER_PAUSEPOINT_H_
