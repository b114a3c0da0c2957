#include <gtest/gtest.h>

#include <atomic>
#include <climits>
#include <cstdio>
#include <memory>

#include "tests/support/CapturedStderr.h"
#include "tests/support/TestFiles.h"
#include "tests/support/Watchdog.h"
#include "util/RudeTimer.h"

namespace {

using support::CapturedStderr;
using support::eventually;
using util::RudeTimer;

std::atomic<int> fired{0};
std::atomic<void*> firedWith{nullptr};

void fire(void* arg) {
  firedWith = arg;
  ++fired;
}

class RudeTimerTest : public testing::Test {
 protected:
  RudeTimerTest() {
    fired = 0;
    firedWith = nullptr;
  }
  support::Watchdog watchdog{60, [] { return std::string(); }};
};

TEST_F(RudeTimerTest, FiresOnceWithItsArgumentWithoutRealWaiting) {
  const CapturedStderr log(0);
  int argument = 0;
  RudeTimer timer(1000000, false, fire);
  EXPECT_FALSE(timer.isActive());
  timer.start(&argument);
  ASSERT_TRUE(eventually([] { return fired == 1; }));
  EXPECT_EQ(firedWith, &argument);
  ASSERT_TRUE(eventually([&] { return !timer.isActive(); }));
  EXPECT_TRUE(log.has("run: RudeTimer run loop"));
  EXPECT_TRUE(log.has("run: Timer out:1000000 ~ 1000000"));
  timer.start(&argument);
  EXPECT_TRUE(eventually([] { return fired == 2; })) << "an inactive timer starts again";
}

TEST_F(RudeTimerTest, PeriodBelowOneStepIsReportedAndStillFires) {
  const CapturedStderr log(0);
  RudeTimer timer(50, false, fire);
  EXPECT_TRUE(log.has("RudeTimer: Error setting, the give timer time is too little:50 mseconds"));
  timer.start(nullptr);
  ASSERT_TRUE(eventually([] { return fired == 1; }));
  EXPECT_TRUE(log.has("run: Timer out:100 ~ 50"));
}

TEST_F(RudeTimerTest, StopInterruptsTheCount) {
  const CapturedStderr log(0);
  {
    RudeTimer timer(INT_MAX - 100, false, fire);
    timer.start(nullptr);
    ASSERT_TRUE(eventually([&] { return log.has("run: RudeTimer run loop"); }));
    timer.stop();
    EXPECT_FALSE(timer.isActive());
  }
  EXPECT_EQ(fired, 0);
  EXPECT_TRUE(log.has("~RudeTimer: begin to stop timer thread"));
}

// True if the log has the line of a count of that period that was stopped before its end.
bool wasInterrupted(const CapturedStderr& log, int wanted) {
  for (const std::string& line : log.messages("run")) {
    int elapsed = -1;
    int period = -1;
    if (sscanf(line.c_str(), "run: Timer is interrupted:%d ~ %d", &elapsed, &period) == 2 &&
        elapsed >= 0 && elapsed < period && period == wanted) {
      return true;
    }
  }
  return false;
}

TEST_F(RudeTimerTest, StoppedCountIsLoggedAsInterrupted) {
  const CapturedStderr log(0);
  RudeTimer timer(INT_MAX - 100, false, fire);
  // The count takes a fraction of a second: on a busy machine it may be over before the stop.
  for (int tries = 1; tries <= 20 && !wasInterrupted(log, INT_MAX - 100); ++tries) {
    const int before = fired;
    timer.start(nullptr);
    ASSERT_TRUE(eventually([&] { return log.count("run: RudeTimer run loop") == tries; }));
    timer.stop();
    ASSERT_TRUE(eventually([&] { return fired > before || wasInterrupted(log, INT_MAX - 100); }));
  }
  EXPECT_TRUE(wasInterrupted(log, INT_MAX - 100)) << log.text();
}

TEST_F(RudeTimerTest, LongestPeriodEnds) {
  const CapturedStderr log(0);
  RudeTimer timer(INT_MAX, false, fire);
  timer.start(nullptr);
  ASSERT_TRUE(eventually([] { return fired == 1; }, 50)) << "21474837 steps of 100 ms";
  EXPECT_TRUE(log.has("run: Timer out:2147483647 ~ 2147483647"));
}

// Restarts its own timer, as a repeating timer's callback does.
RudeTimer* repeating = nullptr;
void fireAgain(void* arg) {
  fire(arg);
  repeating->start(nullptr);
}

TEST_F(RudeTimerTest, RepeatingTimerFiresAgainAndEndsWithItsObject) {
  int argument = 0;
  const int threads = support::threadCount();
  {
    RudeTimer timer(100, true, fireAgain);
    repeating = &timer;
    timer.start(&argument);
    ASSERT_TRUE(eventually([] { return fired >= 5; }));
    EXPECT_EQ(firedWith, &argument) << "start on an active timer keeps the argument";
  }
  EXPECT_TRUE(eventually([=] { return support::threadCount() <= threads; }));
}

}  // namespace
