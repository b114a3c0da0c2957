#ifndef FLUVIAFS_TESTS_ORDEAL_STRESS_RUN_H_
#define FLUVIAFS_TESTS_ORDEAL_STRESS_RUN_H_

namespace stress {

struct Plan {
  unsigned int seed = 1;
  int firstRound = 0;
  int rounds = 0;   // 0: until the time is over
  int seconds = 0;  // 0: until the rounds are over
};

// Runs rounds one after the other. Prints the seed, the counts, and each error with the command
// that repeats it. Discards standard error, to which libcurl logs every request; a sanitizer's
// report still goes to its old destination. Returns true without errors.
bool run(const Plan& plan);

}  // namespace stress

#endif  // FLUVIAFS_TESTS_ORDEAL_STRESS_RUN_H_
