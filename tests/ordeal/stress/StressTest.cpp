// The stress program's own test, and the seeds that once failed, by the name of what they found.
#include <gtest/gtest.h>

#include "tests/ordeal/stress/Round.h"
#include "tests/ordeal/stress/Run.h"
#include "tests/ordeal/stress/World.h"
#include "tests/support/Watchdog.h"

namespace {

TEST(Stress, FewRoundsPass) {
  stress::Plan plan;
  plan.seed = support::seedOr(4711);
  plan.rounds = 3;
  EXPECT_TRUE(stress::run(plan));
}

TEST(Stress, WrongByteIsFound) {
  stress::plantWrongByte(true);
  stress::Plan plan;
  plan.seed = 4711;
  plan.rounds = 3;
  EXPECT_FALSE(stress::run(plan));
  stress::plantWrongByte(false);
}

}  // namespace
