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

// A value over time that keeps its shape and not its length: time is cut into columns, and of each
// column at most the first, the lowest, the highest and the last value stay. When there are too
// many points the columns become twice as wide.
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
  // Seconds of a column: how exactly times are kept.
  double step() const { return step_; }

 private:
  void thin();

  size_t most_;
  double step_ = 0.001;
  std::vector<Point> points_;
};

// What a buffer held, column by column, thinned in the same way: the last state of a column stays.
class ThinHoldings {
 public:
  struct Column {
    double time = 0;  // seconds; holds until the next column
    std::vector<Span> held;
  };

  explicit ThinHoldings(size_t mostColumns = 2000) : most_(mostColumns) {}

  // Times do not decrease; spans are sorted and apart.
  void add(double time, std::vector<Span> held);
  const std::vector<Column>& columns() const { return columns_; }

 private:
  size_t most_;
  double step_ = 0.001;
  std::vector<Column> columns_;
};

}  // namespace tools

#endif  // FLUVIAFS_TOOLS_TRACE_THINCURVE_H_
