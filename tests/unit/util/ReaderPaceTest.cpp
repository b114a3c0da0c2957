#include <gtest/gtest.h>

#include "util/ReaderPace.h"

namespace {

using util::ReaderPace;

constexpr long long kStretch = 1000;

// A reader that went from 5000 to 6000 with only short waits.
ReaderPace steady() {
  ReaderPace pace;
  pace.readBegins(5000);
  pace.waited(true);
  pace.readEnded(5600);
  pace.readBegins(5600);
  pace.waited(true);
  pace.readEnded(6000);
  return pace;
}

TEST(ReaderPace, KeepsUpAfterAStretchWithoutALongWait) {
  EXPECT_TRUE(steady().keepsUp(6000, kStretch));
  EXPECT_FALSE(steady().keepsUp(5999, kStretch)) << "too soon to tell";
}

TEST(ReaderPace, DoesNotKeepUpBeforeItHasWaited) {
  ReaderPace pace;
  pace.readBegins(0);
  EXPECT_FALSE(pace.keepsUp(5 * kStretch, kStretch)) << "what it read was held";
}

TEST(ReaderPace, DoesNotKeepUpAfterALongWait) {
  ReaderPace pace = steady();
  pace.waited(false);
  EXPECT_FALSE(pace.keepsUp(6000, kStretch));
  pace.waited(true);
  EXPECT_TRUE(pace.keepsUp(6000, kStretch)) << "the stretch goes on";
}

TEST(ReaderPace, BeginsANewStretchWithAJump) {
  ReaderPace pace = steady();
  pace.readBegins(20000);
  EXPECT_FALSE(pace.keepsUp(20000, kStretch));
  EXPECT_FALSE(pace.keepsUp(20000 + kStretch, kStretch)) << "it has not waited there yet";
  pace.waited(true);
  EXPECT_FALSE(pace.keepsUp(20000 + kStretch - 1, kStretch));
  EXPECT_TRUE(pace.keepsUp(20000 + kStretch, kStretch));
}

TEST(ReaderPace, CountsAJumpBackAsAJump) {
  ReaderPace pace = steady();
  pace.readBegins(0);
  pace.waited(true);
  EXPECT_FALSE(pace.keepsUp(0, kStretch));
}

}  // namespace
