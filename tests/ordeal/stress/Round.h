#ifndef FLUVIAFS_TESTS_ORDEAL_STRESS_ROUND_H_
#define FLUVIAFS_TESTS_ORDEAL_STRESS_ROUND_H_

#include <string>

#include "tests/ordeal/stress/Tally.h"

namespace stress {

// Draws servers, resources, threads and operations from the seed, runs them, closes everything and
// checks that nothing is left. Returns an empty string, or the error. A hang ends the process after
// a report of each thread's step.
std::string runRound(unsigned int seed, Tally* tally);

}  // namespace stress

#endif  // FLUVIAFS_TESTS_ORDEAL_STRESS_ROUND_H_
