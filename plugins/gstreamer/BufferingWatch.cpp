#include "BufferingWatch.h"

#include <algorithm>

int BufferingWatch::update(const SourceLevels& levels, bool ended) {
  const long long full = std::max(1LL, levels.wanted / 2);
  const bool enough = ended || levels.wanted <= 0 || levels.buffered >= full;
  if (!buffering_) {
    if (enough || levels.buffered >= levels.wanted / 10) return -1;
    buffering_ = true;
    told_ = -1;
    most_ = levels.buffered;
    idleLooks_ = 0;
  }
  idleLooks_ = levels.buffered > most_ ? 0 : idleLooks_ + 1;
  most_ = std::max(most_, levels.buffered);
  if (enough || idleLooks_ >= kPatience) {
    buffering_ = false;
    return 100;
  }
  const int percent = static_cast<int>(levels.buffered * 100 / full);
  if (percent == told_) return -1;
  told_ = percent;
  return std::min(percent, 99);
}
