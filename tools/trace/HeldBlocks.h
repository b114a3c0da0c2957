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

// What the blocks of a buffer hold together. A log changes a block in every other line and a buffer
// has thousands of them, so the stretches are kept joined: a change costs what it changes and the
// logarithm of the rest.
//
// Invariant: stretches_ are apart and not empty, and cover the offsets at which depth_ is above 0;
//            gaps_ has the gap before each stretch but the first.
class HeldBlocks {
 public:
  // The block's span from now on; an empty one holds nothing, but its beginning is known.
  void set(int block, const Span& span);
  void erase(int block);
  void clear();
  // A list of blocks with their spans: the others are gone, but for those that begin at 0, which it
  // may leave out.
  void replace(const std::map<int, Span>& blocks);

  // The block's span; null when it is not known.
  const Span* find(int block) const;
  // The stretches in order. Beyond most those that are nearest to each other are told as one.
  std::vector<Span> stretches(size_t most) const;

  // How many entries were looked at: the work that was done.
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
  std::set<int> notAtZero_;         // those of blocks_ that begin elsewhere
  std::map<long long, int> depth_;  // blocks that hold the bytes from here to the next entry
  std::map<long long, long long> stretches_;  // end by beginning
  std::set<Gap> gaps_;
  mutable long long looks_ = 0;
};

}  // namespace tools

#endif  // FLUVIAFS_TOOLS_TRACE_HELDBLOCKS_H_
