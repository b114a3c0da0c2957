#include "util/Log.h"

#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <fstream>

namespace util {

Relaxed<int> LOG_LEV(-4);

namespace {

const char kLevelFile[] = "/data/vendor/3rd_rw/fluviafs/log_level";
const char kOtherLevelFile[] = "/data/fluviafs/log_level";

void writePrefix(const char* function, int line) {
  struct timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  fprintf(stderr, "[FluviaFS][00:%lu:%lu][%ld][%s][%d]-------",
          static_cast<unsigned long>(now.tv_sec), static_cast<unsigned long>(now.tv_nsec / 1000000),
          static_cast<long>(syscall(SYS_gettid)), function, line);
}

}  // namespace

void logText(const char* function, int line, const char* text) {
  writePrefix(function, line);
  fwrite(text, 1, strlen(text), stderr);
  fputc('\n', stderr);
}

void logFormat(const char* function, int line, const char* format, ...) {
  writePrefix(function, line);
  va_list args;
  va_start(args, format);
  vfprintf(stderr, format, args);
  va_end(args);
  fputc('\n', stderr);
}

void detectLoglevel() {
  std::ifstream file(kLevelFile);
  if (file.is_open()) {
    char text[3] = {0, 0, 0};
    file.read(text, 2);
    if (file.gcount() > 0) {
      int level = 0;
      // A text that is not a number leaves 0. Intentional: any such file means normal tracing.
      sscanf(text, "%d", &level);  // NOLINT(cert-err34-c)
      LOG_LEV = level;
    }
    file.close();
  } else {
    // Opened but not read: only the vendor file sets the level. Intentional.
    file.open(kOtherLevelFile);
  }
  FLUVIA_LOG(-2, "Log level==%d\n", LOG_LEV.get());
}

}  // namespace util
