#include "ThinCurve.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace tools {
namespace {

bool same(const std::vector<Span>& one, const std::vector<Span>& other) {
  return std::equal(
      one.begin(), one.end(), other.begin(), other.end(),
      [](const Span& a, const Span& b) { return a.begin == b.begin && a.end == b.end; });
}

}  // namespace

void ThinCurve::add(double time, long long value) {
  const size_t size = points_.size();
  // A level stretch needs only its two ends.
  if (size >= 2 && points_[size - 1].value == value && points_[size - 2].value == value) {
    points_[size - 1].time = time;
    return;
  }
  points_.push_back({time, value});
  if (points_.size() <= most_) return;
  thin();
  // Leaves room for a while, so that this work is not repeated for each point.
  while (points_.size() > most_ - most_ / 4) {
    step_ *= 2;
    thin();
  }
}

void ThinCurve::thin() {
  std::vector<Point> kept;
  for (size_t i = 0; i < points_.size();) {
    const double column = std::floor(points_[i].time / step_);
    size_t end = i;
    while (end < points_.size() && std::floor(points_[end].time / step_) == column) ++end;
    size_t low = i;
    size_t high = i;
    for (size_t k = i; k < end; ++k) {
      if (points_[k].value < points_[low].value) low = k;
      if (points_[k].value > points_[high].value) high = k;
    }
    size_t chosen[] = {i, std::min(low, high), std::max(low, high), end - 1};
    const size_t* last = std::unique(std::begin(chosen), std::end(chosen));
    for (const size_t* k = chosen; k != last; ++k) kept.push_back(points_[*k]);
    i = end;
  }
  points_.swap(kept);
}

void ThinHoldings::add(double time, std::vector<Span> held) {
  if (!columns_.empty() && time < columns_.back().time + step_) {
    columns_.back().held = std::move(held);
    return;
  }
  if (!columns_.empty() && same(columns_.back().held, held)) return;
  columns_.push_back({time, std::move(held)});
  if (columns_.size() <= most_) return;
  step_ *= 2;
  std::vector<Column> kept;
  for (Column& column : columns_) {
    if (!kept.empty() && column.time < kept.back().time + step_) {
      kept.back().held = std::move(column.held);
    } else {
      kept.push_back(std::move(column));
    }
  }
  columns_.swap(kept);
}

}  // namespace tools
