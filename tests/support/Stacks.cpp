#include "tests/support/Stacks.h"

#include <dirent.h>
#include <execinfo.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "tests/support/Watchdog.h"

namespace support {

namespace {

std::atomic<int> output{-1};
std::atomic<int> told{0};

void tellOwnStack(int) {
  void* frames[60];
  const int count = backtrace(frames, 60);
  char line[64];
  const int length =
      snprintf(line, sizeof line, "\nthread %ld:\n", static_cast<long>(syscall(SYS_gettid)));
  if (write(output, line, static_cast<size_t>(length)) != length) return;
  backtrace_symbols_fd(frames, count, output);
  ++told;
}

// Returns false if gdb could not be run or could not attach.
bool askDebugger(int descriptor) {
  const std::string self = std::to_string(getpid());
  prctl(PR_SET_PTRACER, PR_SET_PTRACER_ANY, 0, 0, 0);
  const pid_t child = fork();
  if (child < 0) return false;
  if (child == 0) {
    dup2(descriptor, STDOUT_FILENO);
    dup2(descriptor, STDERR_FILENO);
    execlp("gdb", "gdb", "-p", self.c_str(), "-batch", "-nx", "-ex", "set pagination off", "-ex",
           "thread apply all backtrace 40", static_cast<char*>(nullptr));
    _exit(127);
  }
  int status = 0;
  return waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

void askEveryThread(int descriptor) {
  output = descriptor;
  struct sigaction action = {};
  action.sa_handler = &tellOwnStack;
  sigaction(SIGUSR2, &action, nullptr);
  DIR* tasks = opendir("/proc/self/task");
  if (tasks == nullptr) return;
  while (const dirent* entry = readdir(tasks)) {
    const long thread = strtol(entry->d_name, nullptr, 10);
    if (thread == 0) continue;
    const int before = told;
    if (syscall(SYS_tgkill, getpid(), thread, SIGUSR2) != 0) continue;
    eventually([&] { return told > before; }, 2);
  }
  closedir(tasks);
}

}  // namespace

void printAllStacks(int descriptor) {
  if (!askDebugger(descriptor)) askEveryThread(descriptor);
}

}  // namespace support
