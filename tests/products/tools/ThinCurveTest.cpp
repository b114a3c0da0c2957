#include <gtest/gtest.h>

#include <algorithm>

#include "ThinCurve.h"

namespace {

using tools::Span;
using tools::ThinCurve;
using tools::ThinHoldings;

TEST(ThinCurve, ShortOneKeepsEveryPoint) {
  ThinCurve curve(100);
  for (int i = 0; i < 90; ++i) curve.add(i, i * i);
  ASSERT_EQ(curve.points().size(), 90u);
  EXPECT_EQ(curve.points()[7].value, 49);
}

TEST(ThinCurve, LevelStretchIsTwoPoints) {
  ThinCurve curve(100);
  for (int i = 0; i < 1000; ++i) curve.add(i, 5);
  ASSERT_EQ(curve.points().size(), 2u);
  EXPECT_EQ(curve.points()[1].time, 999);
}

TEST(ThinCurve, LongOneKeepsItsEndsAndItsPeaks) {
  ThinCurve curve(400);
  for (int i = 0; i < 200000; ++i) {
    curve.add(i * 0.001, i == 123456 ? 1000000000 : i == 77777 ? 0 : 1000 + i % 7);
  }
  const auto& points = curve.points();
  EXPECT_LE(points.size(), 400u);
  EXPECT_GE(points.size(), 100u) << "no more than needed is given up";
  EXPECT_EQ(points.front().time, 0);
  EXPECT_DOUBLE_EQ(points.back().time, 199.999);
  const auto byValue = [](const ThinCurve::Point& one, const ThinCurve::Point& other) {
    return one.value < other.value;
  };
  const auto extremes = std::minmax_element(points.begin(), points.end(), byValue);
  EXPECT_EQ(extremes.first->value, 0);
  EXPECT_DOUBLE_EQ(extremes.first->time, 77.777);
  EXPECT_EQ(extremes.second->value, 1000000000);
  EXPECT_TRUE(std::is_sorted(points.begin(), points.end(), [](const auto& one, const auto& other) {
    return one.time < other.time;
  }));
}

TEST(ThinCurve, ManyPointsOfOneMomentDoNotCoarsenTheRest) {
  ThinCurve curve(400);
  for (int i = 0; i < 100; ++i) curve.add(i * 0.01, i);
  for (int i = 0; i < 100000; ++i) curve.add(1, i % 1000);
  EXPECT_LE(curve.step(), 0.002);
  EXPECT_GE(curve.points().size(), 100u);
}

TEST(ThinHoldings, LastStateOfAMomentStays) {
  ThinHoldings holdings;
  holdings.add(1, {{0, 10}});
  holdings.add(1, {{0, 20}});
  holdings.add(2, {{0, 20}});
  holdings.add(3, {{5, 20}, {30, 40}});
  ASSERT_EQ(holdings.columns().size(), 2u) << "an unchanged state is no new column";
  EXPECT_EQ(holdings.columns()[0].held[0].end, 20);
  EXPECT_EQ(holdings.columns()[1].held.size(), 2u);
}

TEST(ThinHoldings, LongOneIsBounded) {
  ThinHoldings holdings(100);
  for (int i = 0; i < 100000; ++i) holdings.add(i * 0.01, {{i, i + 100}});
  EXPECT_LE(holdings.columns().size(), 100u);
  EXPECT_GE(holdings.columns().size(), 25u);
  EXPECT_EQ(holdings.columns().front().time, 0);
}

}  // namespace
