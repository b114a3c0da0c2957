#include <gtest/gtest.h>

#include <thread>

#include "tests/support/CapturedStderr.h"
#include "tests/support/HttpProbes.h"
#include "tests/support/Watchdog.h"
#include "webs/LimitSpeed.h"
#include "webs/MovingAverage.h"

namespace {

TEST(MovingAverage, ConstantRateIsReportedFromTheFirstSampleOn) {
  webs::MovingAverage average(10);
  for (int i = 0; i < 30; ++i) EXPECT_EQ(average.push(5000), 5000) << "sample " << i;
}

TEST(MovingAverage, NewestSampleWeighsTwoThirdsAtLeast) {
  webs::MovingAverage average(10);
  EXPECT_EQ(average.push(100), 100);
  EXPECT_EQ(average.push(300), 256);
}

TEST(MovingAverage, OldestSampleIsDroppedAtCapacity) {
  webs::MovingAverage average(2);
  average.push(100);
  average.push(300);
  // 100 goes: range 100, path |300 - 100| + |400 - 300| = 300, alpha 0.11.
  EXPECT_EQ(average.push(400), static_cast<long long>(256 * 0.11 + 0.89 * 400));
}

TEST(MovingAverage, CapacityOfNoneKeepsTheLastSample) {
  webs::MovingAverage average(0);
  EXPECT_EQ(average.push(100), 100);
  EXPECT_GT(average.push(200), 100);
}

TEST(MovingAverageSum, AddsUpTheWay) {
  webs::MovingAverageSum sum(10);
  sum(30);
  sum(25);
  EXPECT_EQ(sum.getSum(), 25);
}

TEST(LimitSpeed, NoCapNeverSleeps) {
  webs::LimitSpeed limit;
  limit.InitSpeed();
  const support::Stopwatch watch;
  for (const long long cap : {0LL, -1LL}) {
    limit.setMaxSpeed(cap);
    for (int i = 0; i < 1000; ++i) limit.Limitspeed(1 << 30);
  }
  EXPECT_LT(watch.seconds(), support::patience(1));
}

TEST(LimitSpeed, LargeChunkWaitsUntilTheAverageIsBack) {
  support::CapturedStderr log(2);
  webs::LimitSpeed limit;
  limit.setMaxSpeed(100000);
  limit.InitSpeed();
  const support::Stopwatch watch;

  limit.Limitspeed(524288);

  EXPECT_GE(watch.seconds(), 5.2);
  EXPECT_LT(watch.seconds(), support::patience(8.5));
  const std::vector<std::string> lines = log.messages("Limitspeed");
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0].find("Limitspeed: allsize:524288, want_ms  = 5242, actual_ms = "), 0u);
}

TEST(LimitSpeed, SleepEndsWhenTheWatchedFlagIsCleared) {
  webs::LimitSpeed limit;
  util::Relaxed<bool> goOn(true);
  limit.watch(&goOn);
  limit.setMaxSpeed(1);
  limit.InitSpeed();
  const support::Stopwatch watch;
  std::thread sleeper([&] { limit.Limitspeed(100000); });
  goOn = false;
  sleeper.join();
  EXPECT_LT(watch.seconds(), support::patience(10)) << "a hundred thousand seconds were asked for";
}

TEST(LimitSpeed, CapTakenAwayMeanwhileIsHarmless) {
  webs::LimitSpeed limit;
  limit.InitSpeed();
  util::Relaxed<bool> over(false);
  std::thread changer([&] {
    while (!over) {
      limit.setMaxSpeed(0);
      limit.setMaxSpeed(1LL << 50);
    }
  });
  for (int i = 0; i < 200000; ++i) limit.Limitspeed(1);
  over = true;
  changer.join();
}

TEST(LimitSpeed, AverageIsBytesPerSecondSinceTheStart) {
  webs::LimitSpeed limit;
  limit.InitSpeed();
  EXPECT_EQ(limit.GetAvgSpeed(), 0);
  limit.setMaxSpeed(100000);
  limit.Limitspeed(50000);
  limit.CalAvgSpeed();
  EXPECT_GT(limit.GetAvgSpeed(), 20000);
  EXPECT_LE(limit.GetAvgSpeed(), 101000);
  limit.InitSpeed();
  EXPECT_EQ(limit.GetAvgSpeed(), 0);
}

}  // namespace
