#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "HeldBlocks.h"
#include "tests/support/Watchdog.h"

namespace {

using tools::HeldBlocks;
using tools::Span;

// The same in the simplest way.
std::vector<Span> plainly(const std::map<int, Span>& blocks, size_t most) {
  std::vector<Span> spans;
  for (const auto& block : blocks) {
    if (block.second.end > block.second.begin) spans.push_back(block.second);
  }
  std::sort(spans.begin(), spans.end(),
            [](const Span& one, const Span& other) { return one.begin < other.begin; });
  std::vector<Span> joined;
  for (const Span& span : spans) {
    if (!joined.empty() && span.begin <= joined.back().end) {
      joined.back().end = std::max(joined.back().end, span.end);
    } else {
      joined.push_back(span);
    }
  }
  while (joined.size() > most) {
    size_t best = 1;
    for (size_t i = 1; i < joined.size(); ++i) {
      const auto gap = [&joined](size_t k) { return joined[k].begin - joined[k - 1].end; };
      if (gap(i) < gap(best)) best = i;
    }
    joined[best - 1].end = joined[best].end;
    joined.erase(joined.begin() + static_cast<std::ptrdiff_t>(best));
  }
  return joined;
}

std::string text(const std::vector<Span>& spans) {
  std::string made;
  for (const Span& span : spans) {
    made += "[" + std::to_string(span.begin) + "," + std::to_string(span.end) + ") ";
  }
  return made;
}

TEST(HeldBlocks, NeighboursAreOneStretch) {
  HeldBlocks held;
  held.set(0, {0, 100});
  held.set(1, {100, 150});
  held.set(2, {200, 200});
  EXPECT_EQ(text(held.stretches(12)), "[0,150) ");
  held.set(1, {100, 200});
  held.set(2, {200, 230});
  EXPECT_EQ(text(held.stretches(12)), "[0,230) ");
  held.erase(1);
  EXPECT_EQ(text(held.stretches(12)), "[0,100) [200,230) ");
}

TEST(HeldBlocks, NearestStretchesAreJoinedWhenThereAreTooMany) {
  HeldBlocks held;
  for (int i = 0; i < 13; ++i) held.set(i, {i * 100, i * 100 + (i == 4 ? 90 : 50)});
  const std::vector<Span> told = held.stretches(12);
  ASSERT_EQ(told.size(), 12u);
  EXPECT_EQ(told[4].begin, 400);
  EXPECT_EQ(told[4].end, 550) << "the gap of 10 was the smallest";
}

// Blocks of several lists may temporarily hold the same bytes.
TEST(HeldBlocks, RandomChangesGiveWhatAPlainListGives) {
  const unsigned int seed = support::printedSeed();
  std::mt19937 random(seed);
  const auto below = [&random](int limit) {
    return static_cast<int>(random() % static_cast<unsigned int>(limit));
  };
  HeldBlocks held;
  std::map<int, Span> plain;
  for (int i = 0; i < 20000; ++i) {
    const int block = below(40);
    const long long begin = below(60) * 10;
    const Span span = {begin, begin + below(8) * 10 - 10};
    const int what = below(100);
    if (what < 70) {
      held.set(block, span);
      plain[block] = span;
    } else if (what < 95) {
      held.erase(block);
      plain.erase(block);
    } else if (what < 99) {
      const std::map<int, Span> list = {{block, span}, {below(40), {begin, begin + 10}}};
      held.replace(list);
      for (auto known = plain.begin(); known != plain.end();) {
        known = known->second.begin == 0 ? std::next(known) : plain.erase(known);
      }
      for (const auto& each : list) plain[each.first] = each.second;
    } else {
      held.clear();
      plain.clear();
    }
    const size_t most = static_cast<size_t>(1 + below(12));
    ASSERT_EQ(text(held.stretches(most)), text(plainly(plain, most))) << "after change " << i;
  }
}

// A log of 100 MB changes blocks half a million times.
TEST(HeldBlocks, WorkOfAChangeDoesNotGrowWithTheBlocks) {
  for (const long long step : {32768, 65536}) {
    HeldBlocks held;
    constexpr int kChanges = 40000;
    for (int i = 0; i < kChanges; ++i) {
      const long long begin = i * step;
      held.set(i % 4096, {begin, begin + 16384});
      held.set(i % 4096, {begin, begin + 32768});
      EXPECT_LE(held.stretches(12).size(), 12u);
    }
    EXPECT_LE(held.looks(), 20LL * kChanges) << "blocks every " << step;
  }
}

TEST(HeldBlocks, ListsOfFewBlocksDoNotLookAtTheManyThatBeginAtZero) {
  HeldBlocks held;
  for (int block = 0; block < 4096; ++block) held.set(block, {0, 0});
  const long long before = held.looks();
  for (int i = 0; i < 1000; ++i) held.replace({{1, {32768, 65536}}});
  EXPECT_LE(held.looks() - before, 10000);
}

}  // namespace
