#include "tests/support/SilentStderr.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#include <sanitizer/common_interface_defs.h>
#endif

namespace support {

void silenceStderr() {
  static bool done = false;
  if (done) return;
  done = true;
  const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
  const int reports = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 10);
  if (nowhere < 0 || reports < 0 || dup2(nowhere, STDERR_FILENO) < 0) abort();
  close(nowhere);
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  __sanitizer_set_report_fd(reinterpret_cast<void*>(static_cast<intptr_t>(reports)));
#endif
}

}  // namespace support
