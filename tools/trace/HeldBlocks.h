#ifndef FLUVIAFS_TOOLS_TRACE_HELDBLOCKS_H_
#define FLUVIAFS_TOOLS_TRACE_HELDBLOCKS_H_

#include <cstddef>
#include <map>
#include <set>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "ThinCurve.h"

namespace tools {

// The union of the spans of a buffer's blocks. A log changes a block in every other line and a
// buffer has thousands of them, so the stretches are kept merged: a change costs time proportional
// to what it changes, and the logarithm of the rest.
//
// Invariant: stretches_ are disjoint and not empty, and cover the offsets at which depth_ is above
//            0; gaps_ has the gap before each stretch but the first.
class HeldBlocks {
 public:
  // Sets the block's span. An empty span has no bytes, but its beginning is known.
  void set(int block, const Span& span);
  void erase(int block);
  void clear();
  // Replaces all blocks by this list. Other blocks that begin at 0 stay, because a list may omit
  // them.
  void replace(const std::map<int, Span>& blocks);

  // The block's span; null if it is not known.
  const Span* find(int block) const;
  // The stretches in order, at most most: the ones nearest to each other are merged.
  std::vector<Span> stretches(size_t most) const;

  // Number of entries visited: a measure of the work done.
  long long looks() const { return looks_; }

 private:
  using Gap = std::pair<long long, long long>;  // length, and the offset at which it ends

  void cover(const Span& span, int by);
  std::map<long long, int>::iterator edgeAt(long long offset);
  void dropEdge(long long offset);
  void join(const Span& span);
  void cut(const Span& span);
  void addStretch(long long begin, long long end);
  std::map<long long, long long>::iterator dropStretch(std::map<long long, long long>::iterator it);

  std::map<int, Span> blocks_;      // by the block's number
  std::set<int> notAtZero_;         // blocks of blocks_ that begin elsewhere
  std::map<long long, int> depth_;  // number of blocks with these bytes, up to the next entry
  std::map<long long, long long> stretches_;  // end by beginning
  std::set<Gap> gaps_;
  mutable long long looks_ = 0;
};

}  // namespace tools

#endif  // FLUVIAFS_TOOLS_TRACE_HELDBLOCKS_H_
