#ifndef FLUVIAFS_TESTS_ORDEAL_STRESS_ROUND_H_
#define FLUVIAFS_TESTS_ORDEAL_STRESS_ROUND_H_

#include <string>

#include "tests/ordeal/stress/Tally.h"

namespace stress {

// Draws servers, resources, threads and operations from the seed, runs them, closes everything and
// looks whether anything is left. Empty, or what went wrong. A hang ends the process, after it has
// told what every thread does.
std::string runRound(unsigned int seed, Tally* tally);

}  // namespace stress

#endif  // FLUVIAFS_TESTS_ORDEAL_STRESS_ROUND_H_
