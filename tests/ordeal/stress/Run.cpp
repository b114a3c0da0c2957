#include "tests/ordeal/stress/Run.h"

#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>

#include "tests/ordeal/stress/Round.h"
#include "tests/support/TestFiles.h"
#include "tests/support/Watchdog.h"

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#include <sanitizer/common_interface_defs.h>
#endif

namespace stress {

namespace {

void silenceStandardError() {
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

unsigned int seedOfRound(unsigned int seed, int round) {
  return seed * 2654435761U + static_cast<unsigned int>(round) * 40503U;
}

}  // namespace

bool run(const Plan& plan) {
  using Clock = std::chrono::steady_clock;
  silenceStandardError();
  printf("seed %u\n", plan.seed);
  fflush(stdout);
  Tally tally;
  std::string failure = runRound(seedOfRound(plan.seed, plan.firstRound), &tally);
  const int threads = support::threadCount();
  const auto until = Clock::now() + std::chrono::seconds(plan.seconds);
  int round = plan.firstRound;
  while (failure.empty()) {
    if (plan.rounds > 0 && round - plan.firstRound + 1 >= plan.rounds) break;
    if (plan.rounds == 0 && Clock::now() >= until) break;
    ++round;
    failure = runRound(seedOfRound(plan.seed, round), &tally);
    const auto same = [&] { return support::threadCount() <= threads; };
    if (failure.empty() && !support::eventually(same, 30)) {
      failure = std::to_string(support::threadCount()) + " threads, after the first round were " +
                std::to_string(threads);
    }
  }
  printf("%s\n", tally.text().c_str());
  if (!failure.empty()) {
    printf("FAILED in round %d: %s\nrepeat with --seed %u --round %d --rounds 1\n", round,
           failure.c_str(), plan.seed, round);
  }
  fflush(stdout);
  return failure.empty();
}

}  // namespace stress
