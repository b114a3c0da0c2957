#ifndef FLUVIAFS_UTIL_LOG_H_
#define FLUVIAFS_UTIL_LOG_H_

#include "util/Relaxed.h"

namespace util {

// Messages of this level or below are printed; -4 (errors only) until changed. Any thread reads and
// writes it without a lock.
extern Relaxed<int> LOG_LEV;

// Reads "/data/vendor/3rd_rw/fluviafs/log_level" into LOG_LEV; called when the thread engine first
// starts. Only the first two characters of the file count; an empty or missing file changes
// nothing.
void detectLoglevel();

// Write one line to standard error: prefix, message, newline. They make three stdio calls and take
// no lock, so lines of concurrent threads may interleave. Use FLUVIA_LOG instead.
void logText(const char* function, int line, const char* text);
void logFormat(const char* function, int line, const char* format, ...)
    __attribute__((format(printf, 3, 4)));

}  // namespace util

#define FLUVIA_LOG_PICK(a, b, c, d, e, f, g, h, i, name, ...) name

// Logs a message under another function's name, for long operations that are split into several
// functions.
#define FLUVIA_LOG_AS(function, level, ...)                                                       \
  do {                                                                                            \
    if (::util::LOG_LEV.get() >= (level)) {                                                       \
      FLUVIA_LOG_PICK(__VA_ARGS__, ::util::logFormat, ::util::logFormat, ::util::logFormat,       \
                      ::util::logFormat, ::util::logFormat, ::util::logFormat, ::util::logFormat, \
                      ::util::logFormat, ::util::logText, )                                       \
      (function, __LINE__, __VA_ARGS__);                                                          \
    }                                                                                             \
  } while (false)

// Logs a message at a threshold: FLUVIA_LOG(0, "constant text") or FLUVIA_LOG(2, "format %d", n).
// The arguments are evaluated only if the line is printed: some of them have side effects.
#define FLUVIA_LOG(level, ...) FLUVIA_LOG_AS(__func__, level, __VA_ARGS__)

#endif  // FLUVIAFS_UTIL_LOG_H_
