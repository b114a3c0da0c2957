#ifndef FLUVIAFS_TOOLS_TRACE_THINCURVE_H_
#define FLUVIAFS_TOOLS_TRACE_THINCURVE_H_

#include <cstddef>
#include <vector>

namespace tools {

// Bytes [begin, end).
struct Span {
  long long begin = 0;
  long long end = 0;
};

// A value over time with a limited number of points that keeps its shape. Time is divided into
// columns; each column keeps at most its first, lowest, highest and last value. If there are too
// many points, the columns become twice as wide.
class ThinCurve {
 public:
  struct Point {
    double time = 0;      // seconds
    long long value = 0;  // kBreak: the curve is interrupted
  };
  static constexpr long long kBreak = -1;

  explicit ThinCurve(size_t mostPoints = 4000) : most_(mostPoints) {}

  // Times do not decrease; values are 0 or more, or kBreak.
  void add(double time, long long value);
  const std::vector<Point>& points() const { return points_; }
  // Width of a column in seconds: the precision of times.
  double step() const { return step_; }

 private:
  void thin();

  size_t most_;
  double step_ = 0.001;
  std::vector<Point> points_;
};

// The contents of a buffer, column by column, thinned in the same way: each column keeps its last
// state.
class ThinHoldings {
 public:
  struct Column {
    double time = 0;  // seconds; holds until the next column
    std::vector<Span> held;
  };

  explicit ThinHoldings(size_t mostColumns = 2000) : most_(mostColumns) {}

  // Times do not decrease; spans are sorted and disjoint.
  void add(double time, std::vector<Span> held);
  const std::vector<Column>& columns() const { return columns_; }

 private:
  size_t most_;
  double step_ = 0.001;
  std::vector<Column> columns_;
};

}  // namespace tools

#endif  // FLUVIAFS_TOOLS_TRACE_THINCURVE_H_
