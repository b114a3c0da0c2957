#include "PageText.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace tools {
namespace {

constexpr char kReplacement[] = "\xEF\xBF\xBD";

// Bytes of the UTF-8 sequence at the front of text; 0 if there is none.
size_t sequenceLength(const unsigned char* text, size_t size) {
  const unsigned char first = text[0];
  const size_t length = first < 0x80   ? 1
                        : first < 0xC2 ? 0
                        : first < 0xE0 ? 2
                        : first < 0xF0 ? 3
                                       : 4;
  if (length == 0 || first > 0xF4 || length > size) return 0;
  for (size_t i = 1; i < length; ++i) {
    if ((text[i] & 0xC0) != 0x80) return 0;
  }
  const bool overlong = (first == 0xE0 && text[1] < 0xA0) || (first == 0xF0 && text[1] < 0x90);
  const bool outside = (first == 0xED && text[1] > 0x9F) || (first == 0xF4 && text[1] > 0x8F);
  return overlong || outside ? 0 : length;
}

std::string format(const char* pattern, double value) {
  char text[64];
  snprintf(text, sizeof text, pattern, value);
  return text;
}

struct ShareWords {
  const char* whole;
  const char* brief;
};

constexpr std::array<ShareWords, Wait::kShares> kShareWords = {{
    {"no connection was running", "no connection"},
    {"the server had not answered yet", "no answer yet"},
    {"the connection was silent", "server silent"},
    {"the connection was still bringing other bytes", "connection elsewhere"},
    {"bytes came more slowly than they were read", "slow server"},
}};

size_t mainShare(const Wait& wait) {
  return static_cast<size_t>(std::max_element(wait.shares.begin(), wait.shares.end()) -
                             wait.shares.begin());
}

}  // namespace

std::string plainText(const std::string& text) {
  std::string plain;
  for (size_t at = 0; at < text.size();) {
    const size_t length =
        sequenceLength(reinterpret_cast<const unsigned char*>(text.data()) + at, text.size() - at);
    const bool control =
        length == 1 && (static_cast<unsigned char>(text[at]) < 0x20 || text[at] == 0x7F);
    plain += length == 0 || control ? std::string(kReplacement) : text.substr(at, length);
    at += std::max<size_t>(length, 1);
  }
  return plain;
}

std::string htmlText(const std::string& text) {
  std::string html;
  for (const char c : plainText(text)) {
    switch (c) {
      case '&':
        html += "&amp;";
        break;
      case '<':
        html += "&lt;";
        break;
      case '>':
        html += "&gt;";
        break;
      case '"':
        html += "&quot;";
        break;
      case '\'':
        html += "&#39;";
        break;
      default:
        html += c;
    }
  }
  return html;
}

std::string withoutPassword(const std::string& name) {
  const size_t begin = name.find("://");
  if (begin == std::string::npos) return name;
  const size_t host = begin + 3;
  const size_t end = std::min(name.find_first_of("/?#", host), name.size());
  const size_t at = name.rfind('@', end);
  if (at == std::string::npos || at < host) return name;
  return name.substr(0, host) + "***" + name.substr(at);
}

std::string shownSeconds(double seconds) {
  return seconds < 1 ? format("%.0f ms", seconds * 1000) : format("%.2f s", seconds);
}

std::string shownMoment(double seconds) { return format("%.3f", seconds); }

std::string shownBytes(long long bytes) {
  static constexpr std::array<const char*, 4> kUnits = {"KiB", "MiB", "GiB", "TiB"};
  if (bytes < 1024) return std::to_string(bytes) + " B";
  double value = static_cast<double>(bytes) / 1024;
  size_t unit = 0;
  while (value >= 1000 && unit + 1 < kUnits.size()) {
    value /= 1024;
    ++unit;
  }
  return format(value < 10 ? "%.2f " : "%.1f ", value) + kUnits[unit];
}

std::string shownRange(const Connection& connection) {
  if (!connection.ranged) return "all (no Range)";
  return std::to_string(connection.from) + "-" +
         (connection.last > 0 ? std::to_string(connection.last) : "");
}

std::string shownEnd(const Connection& connection) {
  if (connection.outcome == Connection::Outcome::kRunning) return "still running at the log's end";
  std::string text = connection.why;
  if (connection.code > 0) text += ", libcurl " + std::to_string(connection.code);
  return text;
}

std::string whyWaited(const Lane& lane, const Wait& wait) {
  std::string text = kShareWords[mainShare(wait)].whole;
  for (size_t i = 0; i < wait.shares.size(); ++i) {
    if (i == mainShare(wait) || wait.shares[i] < 0.2 * wait.waited) continue;
    text += std::string("; for ") + shownSeconds(wait.shares[i]) + " " + kShareWords[i].whole;
  }
  if (wait.afterSeek) text += "; the reader had just moved by a seek";
  if (wait.endedConnection >= 0) {
    const auto index = static_cast<size_t>(wait.endedConnection);
    text += "; connection " + std::to_string(index + 1) +
            " ended meanwhile: " + shownEnd(lane.connections()[index]);
  }
  return text;
}

std::string whyWaitedShortly(const Wait& wait) {
  std::string text = kShareWords[mainShare(wait)].brief;
  if (wait.afterSeek) text = "seek, " + text;
  return text;
}

}  // namespace tools
