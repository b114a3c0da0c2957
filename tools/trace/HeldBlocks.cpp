#include "HeldBlocks.h"

#include <algorithm>
#include <iterator>

namespace tools {

void HeldBlocks::set(int block, const Span& span) {
  const auto known = blocks_.find(block);
  // The common case: a block that fills.
  if (known != blocks_.end() && known->second.begin == span.begin &&
      known->second.end >= span.begin && span.end >= known->second.end) {
    cover({known->second.end, span.end}, 1);
    known->second.end = span.end;
    return;
  }
  erase(block);
  blocks_[block] = span;
  if (span.begin != 0) notAtZero_.insert(block);
  cover(span, 1);
}

void HeldBlocks::erase(int block) {
  const auto known = blocks_.find(block);
  if (known == blocks_.end()) return;
  const Span span = known->second;
  blocks_.erase(known);
  notAtZero_.erase(block);
  cover(span, -1);
}

void HeldBlocks::clear() {
  blocks_.clear();
  notAtZero_.clear();
  depth_.clear();
  stretches_.clear();
  gaps_.clear();
}

void HeldBlocks::replace(const std::map<int, Span>& blocks) {
  std::vector<int> gone;
  for (const int block : notAtZero_) {
    ++looks_;
    if (blocks.count(block) == 0) gone.push_back(block);
  }
  for (const int block : gone) erase(block);
  for (const auto& block : blocks) set(block.first, block.second);
}

const Span* HeldBlocks::find(int block) const {
  const auto known = blocks_.find(block);
  return known == blocks_.end() ? nullptr : &known->second;
}

std::vector<Span> HeldBlocks::stretches(size_t most) const {
  std::vector<Span> told;
  if (stretches_.empty() || most == 0) return told;
  std::vector<long long> after;  // offsets at which the kept gaps end: the widest ones
  for (auto gap = gaps_.rbegin(); gap != gaps_.rend() && after.size() + 1 < most; ++gap) {
    after.push_back(gap->second);
  }
  std::sort(after.begin(), after.end());
  long long begin = stretches_.begin()->first;
  for (const long long next : after) {
    const auto stretch = stretches_.find(next);
    told.push_back({begin, std::prev(stretch)->second});
    begin = next;
  }
  told.push_back({begin, stretches_.rbegin()->second});
  looks_ += static_cast<long long>(told.size());
  return told;
}

// One block more or less (by) contains that span.
void HeldBlocks::cover(const Span& span, int by) {
  if (span.end <= span.begin) return;
  const auto first = edgeAt(span.begin);
  const auto last = edgeAt(span.end);
  for (auto edge = first; edge != last; ++edge) {
    ++looks_;
    edge->second += by;
  }
  if (by > 0) {
    join(span);
  } else {
    cut(span);
  }
  dropEdge(span.begin);
  dropEdge(span.end);
}

std::map<long long, int>::iterator HeldBlocks::edgeAt(long long offset) {
  const auto after = depth_.upper_bound(offset);
  const int depth = after == depth_.begin() ? 0 : std::prev(after)->second;
  return depth_.emplace(offset, depth).first;
}

// There is no edge where equally many blocks contain the bytes before and after.
void HeldBlocks::dropEdge(long long offset) {
  const auto edge = depth_.find(offset);
  const int before = edge == depth_.begin() ? 0 : std::prev(edge)->second;
  if (edge->second == before) depth_.erase(edge);
}

// Adds the span to the stretches.
void HeldBlocks::join(const Span& span) {
  Span whole = span;
  auto next = stretches_.upper_bound(span.begin);
  if (next != stretches_.begin() && std::prev(next)->second >= span.begin) --next;
  while (next != stretches_.end() && next->first <= span.end) {
    ++looks_;
    whole.begin = std::min(whole.begin, next->first);
    whole.end = std::max(whole.end, next->second);
    next = dropStretch(next);
  }
  addStretch(whole.begin, whole.end);
}

// Removes from the stretches the part of the span that no block contains any more.
void HeldBlocks::cut(const Span& span) {
  const auto last = depth_.find(span.end);
  for (auto edge = depth_.find(span.begin); edge != last; ++edge) {
    ++looks_;
    if (edge->second != 0) continue;
    const Span gone = {edge->first, std::next(edge)->first};
    const auto stretch = std::prev(stretches_.upper_bound(gone.begin));
    const Span whole = {stretch->first, stretch->second};
    dropStretch(stretch);
    if (whole.begin < gone.begin) addStretch(whole.begin, gone.begin);
    if (gone.end < whole.end) addStretch(gone.end, whole.end);
  }
}

void HeldBlocks::addStretch(long long begin, long long end) {
  const auto added = stretches_.emplace(begin, end).first;
  const auto next = std::next(added);
  if (added != stretches_.begin()) {
    const long long before = std::prev(added)->second;
    if (next != stretches_.end()) gaps_.erase({next->first - before, next->first});
    gaps_.insert({begin - before, begin});
  }
  if (next != stretches_.end()) gaps_.insert({next->first - end, next->first});
}

std::map<long long, long long>::iterator HeldBlocks::dropStretch(
    std::map<long long, long long>::iterator it) {
  const auto next = std::next(it);
  if (next != stretches_.end()) gaps_.erase({next->first - it->second, next->first});
  if (it != stretches_.begin()) {
    const long long before = std::prev(it)->second;
    gaps_.erase({it->first - before, it->first});
    if (next != stretches_.end()) gaps_.insert({next->first - before, next->first});
  }
  return stretches_.erase(it);
}

}  // namespace tools
