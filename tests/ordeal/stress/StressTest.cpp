// The stress program's own test, and the seeds that once failed, named after the defect.
#include <gtest/gtest.h>

#include "tests/ordeal/stress/Round.h"
#include "tests/ordeal/stress/Run.h"
#include "tests/ordeal/stress/World.h"
#include "tests/support/Watchdog.h"

namespace {

// True if those rounds of a seed pass.
bool passes(unsigned int seed, int firstRound, int rounds) {
  stress::Plan plan;
  plan.seed = seed;
  plan.firstRound = firstRound;
  plan.rounds = rounds;
  return stress::run(plan);
}

TEST(Stress, FewRoundsPass) { EXPECT_TRUE(passes(support::seedOr(4711), 0, 3)); }

TEST(Stress, WrongByteIsFound) {
  stress::plantWrongByte(true);
  EXPECT_FALSE(passes(4711, 0, 3));
  stress::plantWrongByte(false);
}

// Seeds that failed once, by the defect they found. A round is never the same twice, because of its
// threads.

// It failed in two of three runs.
TEST(StressFound, ServersKeptConnectionsThatWereStopped) {
  EXPECT_TRUE(passes(2, 7, 1));
  EXPECT_TRUE(passes(2, 7, 1));
}

// If every connection ended inside a block, each filled a gap from its beginning.
TEST(StressFound, ReaderWaitedForABlockThatWasNeverFull) { EXPECT_TRUE(passes(501, 207, 1)); }

}  // namespace
