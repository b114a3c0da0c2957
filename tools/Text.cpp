#include "Text.h"

#include <array>
#include <cstdio>

namespace tools {

std::string humanBytes(double bytes) {
  static constexpr std::array<const char*, 5> kUnits = {"B", "KiB", "MiB", "GiB", "TiB"};
  size_t unit = 0;
  while (bytes >= 1024.0 && unit + 1 < kUnits.size()) {
    bytes /= 1024.0;
    ++unit;
  }
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), unit == 0 ? "%.0f %s" : "%.1f %s", bytes, kUnits[unit]);
  return text.data();
}

std::string humanTime(long long seconds) {
  if (seconds < 0) {
    return "-:--";
  }
  std::array<char, 48> text{};
  if (seconds >= 3600) {
    std::snprintf(text.data(), text.size(), "%lld:%02lld:%02lld", seconds / 3600, seconds / 60 % 60,
                  seconds % 60);
  } else {
    std::snprintf(text.data(), text.size(), "%lld:%02lld", seconds / 60, seconds % 60);
  }
  return text.data();
}

}  // namespace tools
