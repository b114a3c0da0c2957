// The element's buffering messages, without GStreamer.
#include <gtest/gtest.h>

#include "BufferingWatch.h"

namespace {

SourceLevels levels(long long buffered, long long wanted) {
  SourceLevels made;
  made.buffered = buffered;
  made.wanted = wanted;
  return made;
}

TEST(BufferingWatch, TellsRisingPercentagesAndEndsAtAHundred) {
  BufferingWatch watch;
  EXPECT_EQ(watch.update(levels(500, 1000), false), -1) << "enough: nothing to tell";
  EXPECT_EQ(watch.update(levels(100, 1000), false), -1) << "a tenth is not low yet";
  EXPECT_EQ(watch.update(levels(50, 1000), false), 10);
  EXPECT_EQ(watch.update(levels(50, 1000), false), -1) << "nothing new";
  EXPECT_EQ(watch.update(levels(200, 1000), false), 40) << "goes on until half is held";
  EXPECT_EQ(watch.update(levels(500, 1000), false), 100);
  EXPECT_EQ(watch.update(levels(400, 1000), false), -1);
}

TEST(BufferingWatch, EndsWhenNothingMoreComes) {
  BufferingWatch watch;
  EXPECT_EQ(watch.update(levels(0, 1000), false), 0);
  int told = -1;
  int looks = 0;
  while (told != 100 && looks < 1000) {
    told = watch.update(levels(0, 1000), false);
    ++looks;
  }
  EXPECT_EQ(told, 100);
  EXPECT_GE(looks, 40) << "patience of some seconds, at ten looks a second";
}

TEST(BufferingWatch, EndsWithTheSource) {
  BufferingWatch watch;
  EXPECT_EQ(watch.update(levels(0, 1000), false), 0);
  EXPECT_EQ(watch.update(levels(0, 1000), true), 100);
  EXPECT_EQ(watch.update(levels(0, 1000), true), -1) << "and is not told twice";
}

TEST(BufferingWatch, LastBytesOfASourceAreEnough) {
  BufferingWatch watch;
  EXPECT_EQ(watch.update(levels(3, 3), false), -1);
  EXPECT_EQ(watch.update(levels(0, 0), false), -1);
}

}  // namespace
