#ifndef FLUVIAFS_TESTS_ORDEAL_STRESS_RUN_H_
#define FLUVIAFS_TESTS_ORDEAL_STRESS_RUN_H_

namespace stress {

struct Plan {
  unsigned int seed = 1;
  int firstRound = 0;
  int rounds = 0;   // 0: until the time is over
  int seconds = 0;  // 0: until the rounds are over
};

// Runs rounds one after the other; prints the seed, what went through, and what went wrong with the
// command that repeats it. Sends standard error, where libcurl tells of every request, nowhere; a
// sanitizer's report goes where it went. True when nothing went wrong.
bool run(const Plan& plan);

}  // namespace stress

#endif  // FLUVIAFS_TESTS_ORDEAL_STRESS_RUN_H_
