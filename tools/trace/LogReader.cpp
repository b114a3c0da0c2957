#include "LogReader.h"

#include <algorithm>
#include <cstring>

namespace tools {
namespace {

constexpr char kMark[] = "[FluviaFS][00:";
constexpr char kEndOfHead[] = "]-------";
constexpr size_t kLongestLine = 65536;
constexpr size_t kMostOpen = 16;
constexpr size_t kLongestJoined = 4096;
// Limit of the attempts to separate texts that no line end separates. Without it, a log with heads
// among much other output would keep the program busy with that output.
constexpr long long kFirstTries = 65536;
constexpr long long kTriesOfALine = 16;
// After this many lines the text of a head is no longer expected.
constexpr long long kPatience = 64;

// Takes digits and the separator after them from the front.
bool takeDigits(std::string_view* text, const char* separator, long long* number) {
  size_t digits = 0;
  *number = 0;
  while (digits < text->size() && digits < 18 && (*text)[digits] >= '0' && (*text)[digits] <= '9') {
    *number = *number * 10 + ((*text)[digits++] - '0');
  }
  const size_t length = strlen(separator);
  if (digits == 0 || text->substr(digits, length) != separator) return false;
  text->remove_prefix(digits + length);
  return true;
}

}  // namespace

void LogReader::feed(const char* data, size_t size) {
  counts_.bytes += static_cast<long long>(size);
  while (size != 0) {
    const char* end = static_cast<const char*>(memchr(data, '\n', size));
    const size_t length = end == nullptr ? size : static_cast<size_t>(end - data);
    if (end != nullptr && partial_.empty() && !overlong_) {
      takeLine(std::string_view(data, std::min(length, kLongestLine)));
    } else {
      const size_t room = kLongestLine - partial_.size();
      partial_.append(data, std::min(length, room));
      overlong_ = overlong_ || length > room;
      if (end != nullptr) finish();
    }
    const size_t taken = end == nullptr ? length : length + 1;
    data += taken;
    size -= taken;
  }
}

void LogReader::finish() {
  if (partial_.empty() && !overlong_) return;
  std::string line;
  line.swap(partial_);
  overlong_ = false;
  takeLine(line);
}

// "[FluviaFS][00:SECONDS:MILLISECONDS][THREAD][FUNCTION][LINE]-------"; the milliseconds have no
// leading zeros.
bool LogReader::parseHead(std::string_view text, Head* head, size_t* length) {
  const size_t all = text.size();
  text.remove_prefix(sizeof kMark - 1);
  long long seconds = 0;
  long long milliseconds = 0;
  long long thread = 0;
  long long line = 0;
  if (!takeDigits(&text, ":", &seconds) || !takeDigits(&text, "][", &milliseconds) ||
      milliseconds > 999 || !takeDigits(&text, "][", &thread)) {
    return false;
  }
  const size_t end = text.find("][");
  if (end == std::string_view::npos || end == 0 || end > 64) return false;
  head->function = std::string(text.substr(0, end));
  text.remove_prefix(end + 2);
  if (!takeDigits(&text, kEndOfHead, &line)) return false;
  head->seconds = static_cast<double>(seconds) + static_cast<double>(milliseconds) / 1000;
  head->thread = static_cast<long>(thread);
  *length = all - text.size();
  return true;
}

void LogReader::takeLine(std::string_view line) {
  ++lineNumber_;
  while (!open_.empty() && open_.front().line + kPatience < lineNumber_) open_.pop_front();
  size_t mark = line.find(kMark);
  if (mark == std::string_view::npos) {
    if (!line.empty() && !tellOpenHead(line) && !tellJoined(line)) ++counts_.foreign;
    return;
  }
  if (mark != 0 && !tellOpenHead(line.substr(0, mark))) tellJoined(line.substr(0, mark));
  while (mark != std::string_view::npos) {
    const std::string_view rest = line.substr(mark);
    const size_t next = rest.find(kMark, 1);
    Head head;
    size_t length = 0;
    if (parseHead(rest, &head, &length)) {
      ++counts_.lines;
      if (origin_ < 0) origin_ = head.seconds;
      head.line = lineNumber_;
      closeHeads(head.thread);
      takeText(head, rest.substr(length, next == std::string_view::npos ? next : next - length));
      if (next != std::string_view::npos) ++counts_.mixed;
    } else {
      ++counts_.foreign;
    }
    mark = next == std::string_view::npos ? next : mark + next;
  }
}

// The text after a head is its own, or that of a thread whose head came before, or both.
void LogReader::takeText(const Head& own, std::string_view text) {
  const Rules rules = rulesOf(own.function);
  if (!text.empty() && tell(own, rules, text)) return;
  if (text.empty() || tellOpenHead(text)) {
    keepOpen(own);
    return;
  }
  if (open_.empty() && torn_ != lineNumber_) return;
  keepOpen(own);
  // If nothing matches, the text is its own and not relevant.
  if (!tellJoined(text) && rules.first != rules.second) open_.pop_back();
}

// Two texts without a line end between them, of two open heads; or one of them after or before
// other text.
bool LogReader::tellJoined(std::string_view text) {
  if (open_.empty() || text.size() > kLongestJoined) return false;
  if (counts_.tries > kFirstTries + kTriesOfALine * counts_.lines) return false;
  // Rejects nearly all splits of a text that is not the library's.
  Beginnings any;
  for (const Head& head : open_) any |= head.beginnings;
  for (size_t cut = 1; cut < text.size(); ++cut) {
    if (mayBegin(any, text.substr(cut)) && tellOpenHead(text.substr(cut))) {
      tellOpenHead(text.substr(0, cut));
      return true;
    }
  }
  if (!mayBegin(any, text)) return false;
  for (size_t cut = text.size(); cut-- > 1;) {
    if (tellOpenHead(text.substr(0, cut))) return true;
  }
  return false;
}

bool LogReader::tell(const Head& head, const Rules& rules, std::string_view text) {
  LogEntry entry;
  if (!recognise(rules, text, &entry.fact)) return false;
  entry.seconds = head.seconds;
  entry.origin = origin_;
  entry.thread = head.thread;
  sink_(entry);
  return true;
}

bool LogReader::tellOpenHead(std::string_view text) {
  for (auto head = open_.begin(); head != open_.end(); ++head) {
    if (!mayBegin(head->beginnings, text)) continue;
    const auto isSame = [&](const Head& other) { return other.rules == head->rules; };
    if (std::any_of(open_.begin(), head, isSame)) continue;  // the same rules did not match
    ++counts_.tries;
    if (tell(*head, head->rules, text)) {
      open_.erase(head);
      return true;
    }
  }
  return false;
}

// A thread writes one line after the other: the text of a head comes before its next head.
void LogReader::closeHeads(long thread) {
  const auto isOf = [thread](const Head& head) { return head.thread == thread; };
  open_.erase(std::remove_if(open_.begin(), open_.end(), isOf), open_.end());
}

void LogReader::keepOpen(const Head& head) {
  torn_ = lineNumber_;
  const Rules rules = rulesOf(head.function);
  if (rules.first == rules.second) return;
  if (open_.size() == kMostOpen) open_.pop_front();
  open_.push_back(head);
  open_.back().rules = rules;
  open_.back().beginnings = beginningsOf(rules);
}

}  // namespace tools
