#include "tests/ordeal/stress/Run.h"

#include <chrono>
#include <cstdio>
#include <string>

#include "tests/ordeal/stress/Round.h"
#include "tests/support/SilentStderr.h"
#include "tests/support/TestFiles.h"
#include "tests/support/Watchdog.h"

namespace stress {

namespace {

unsigned int seedOfRound(unsigned int seed, int round) {
  return seed * 2654435761U + static_cast<unsigned int>(round) * 40503U;
}

}  // namespace

bool run(const Plan& plan) {
  using Clock = std::chrono::steady_clock;
  support::silenceStderr();
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
