#ifndef FLUVIAFS_PLUGINS_GSTREAMER_PAUSEPOINT_H_
#define FLUVIAFS_PLUGINS_GSTREAMER_PAUSEPOINT_H_

// Named places where a test can hold a worker of the element. Compiled only into builds with
// FLUVIA_PAUSE_POINTS; elsewhere the macro leaves no code. The library's own are hidden in it.
#if defined(FLUVIA_PAUSE_POINTS)
// Defined by a test program that holds threads, by nobody else.
extern "C" __attribute__((weak)) void fluvia_src_pause_point(const char* name);

#define FLUVIA_SRC_PAUSE_POINT(name)                                     \
  do {                                                                   \
    if (fluvia_src_pause_point != nullptr) fluvia_src_pause_point(name); \
  } while (false)
#else
#define FLUVIA_SRC_PAUSE_POINT(name) static_cast<void>(0)
#endif

#endif  // FLUVIAFS_PLUGINS_GSTREAMER_PAUSEPOINT_H_
