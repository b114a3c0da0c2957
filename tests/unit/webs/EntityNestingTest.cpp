#include <gtest/gtest.h>

#include "webs/EntityNesting.h"

namespace {

using webs::EntityNesting;

std::string nameOf(int i) { return "e" + std::to_string(i); }
std::string referenceTo(int i) { return "&" + nameOf(i) + ";"; }

// Declares e1 to eLEVELS, each of which refers to the one below.
bool declareChain(EntityNesting* entities, int levels, bool fromTop) {
  for (int i = 1; i <= levels; i++) {
    const int which = fromTop ? levels + 1 - i : i;
    if (!entities->declare(nameOf(which), which == 1 ? "x" : referenceTo(which - 1))) return false;
  }
  return true;
}

TEST(EntityNesting, TakesChainsUpToTheLimitInEitherOrder) {
  for (const bool fromTop : {false, true}) {
    EntityNesting enough, tooDeep;
    EXPECT_TRUE(declareChain(&enough, EntityNesting::MAX_LEVELS, fromTop)) << fromTop;
    EXPECT_FALSE(declareChain(&tooDeep, EntityNesting::MAX_LEVELS + 1, fromTop)) << fromTop;
  }
}

// The middle comes last and joins two halves.
TEST(EntityNesting, JoinsWhatWasDeclaredApart) {
  const int half = EntityNesting::MAX_LEVELS / 2;
  EntityNesting entities;
  EXPECT_TRUE(declareChain(&entities, half, false));
  for (int i = half + 2; i <= 2 * half + 1; i++) {
    EXPECT_TRUE(entities.declare(nameOf(i), referenceTo(i - 1)));
  }
  EXPECT_FALSE(entities.declare(nameOf(half + 1), "a " + referenceTo(half) + " b"));
}

TEST(EntityNesting, CountsTheDeepestOfManyReferences) {
  EntityNesting entities;
  EXPECT_TRUE(declareChain(&entities, EntityNesting::MAX_LEVELS, false));
  EXPECT_TRUE(entities.declare("w", "&e1;&e2; & &e1;&none;&#60;"));
  EXPECT_FALSE(entities.declare("d", "&e1;" + referenceTo(EntityNesting::MAX_LEVELS) + "&e1;"));
}

// Such a text is not well-formed where it is used, but its references count before that.
TEST(EntityNesting, CountsWhatFollowsALooseMark) {
  EntityNesting entities;
  EXPECT_TRUE(declareChain(&entities, EntityNesting::MAX_LEVELS, false));
  EXPECT_FALSE(entities.declare("loose", "& " + referenceTo(EntityNesting::MAX_LEVELS)));
}

TEST(EntityNesting, RefusesCycles) {
  EntityNesting self, pair;
  EXPECT_FALSE(self.declare("a", "&a;"));
  EXPECT_TRUE(pair.declare("a", "&b;"));
  EXPECT_FALSE(pair.declare("b", "&a;"));
}

TEST(EntityNesting, TakesSoManyEntities) {
  EntityNesting entities;
  for (int i = 0; i < EntityNesting::MAX_ENTITIES; i++) {
    ASSERT_TRUE(entities.declare(nameOf(i), "x"));
  }
  EXPECT_FALSE(entities.declare("more", "x"));
}

// A text may have as many references as it has bytes for, and need not be well-formed. In quadratic
// time each of these would take minutes.
TEST(EntityNesting, LongTextsTakeTimeByTheirSize) {
  EntityNesting entities;
  EXPECT_TRUE(entities.declare("open", std::string(2000000, '&') + ";"));
  std::string many;
  for (int i = 0; i < 200000; i++) many += referenceTo(i % 1000);
  EXPECT_TRUE(entities.declare("many", many));
  EXPECT_TRUE(declareChain(&entities, EntityNesting::MAX_LEVELS - 1, true));
  EXPECT_TRUE(entities.declare("unended", "&" + std::string(2000000, 'x')));
}

}  // namespace
