#include "LogWords.h"

#include <algorithm>
#include <cctype>
#include <iterator>
#include <string>
#include <utility>

namespace tools {

// A text as a function logs it. In the pattern %d is a number, %p a word, %s any text up to the
// last place where the rest matches, %* any rest; a space is any number of spaces.
struct Rule {
  std::string_view function;
  std::string_view pattern;
  LogWord word;
};

namespace {

// Sorted by function.
constexpr Rule kRules[] = {
    {"FluviaSocket", "URL IP: %s", LogWord::kAddress},
    {"checkErrorInsert", "inserted one is id:%d, %d", LogWord::kPlacedBlock},
    {"dumpBuffer", "begin to dump buffer", LogWord::kDumpBegin},
    {"dumpBuffer", "s %d: %d ~ %d", LogWord::kDumpBlock},
    {"dumpBuffer", "------------------------------", LogWord::kDumpLine},
    {"easyFill", "wait and feeding = false, begin index:%d, readOffset:%d, %*",
     LogWord::kWaitInBlock},
    {"easyFill", "wake up %*", LogWord::kWakeUp},
    {"executeGet", "handle:%p, PFFFF begin to perform(url: %s, start: %d, end: %d)",
     LogWord::kGetBegin},
    {"executeGet",
     "handle:%p, curl_easy_perform ret:%d, respond code:%d, socket_errno:%d, cal_speed:%d Byte/s, "
     "maxspeed:%d Byte/s, download End size %d Byte",
     LogWord::kGetEnd},
    {"executeGet", "handle:%p, request failed: %*", LogWord::kProblem},
    {"executeGet", "set fgrangeget to false", LogWord::kUnranged},
    {"executeGet", "set fgrangeget to true", LogWord::kRanged},
    {"fill", "wait and feeding = true seq=%d, %*", LogWord::kWaitAhead},
    {"fill", "wait in backword finding readOffset=%d, %*", LogWord::kWaitBehind},
    {"fill", "wait in fill", LogWord::kWaitGoesOn},
    {"fill", "wait in the first block, rd:%d, offset:%d", LogWord::kWaitInBlock},
    {"fill", "wake up %*", LogWord::kWakeUp},
    {"fragmentStreaming", "reset wtHead:%d, %*", LogWord::kDroppedBlock},
    {"headerContentIn", "response_code =%d", LogWord::kStatus},
    {"notifyStreamException", "File not found", LogWord::kProblem},
    {"notifyStreamException", "Read end of file and notify %*", LogWord::kStreamEnd},
    {"notifyStreamException", "cancel and go another connection", LogWord::kRestart},
    {"notifyStreamException", "reset %*", LogWord::kRestart},
    {"notifyStreamException", "retry finished %*", LogWord::kProblem},
    {"notifyStreamException", "stream event %d", LogWord::kEvent},
    {"notifyStreamException", "wait for new feeding request", LogWord::kParked},
    {"notifyStreamException", "wake up for new feeding request%*", LogWord::kUnparked},
    {"perform", "(((((((((((( request count :%d: %*", LogWord::kAsyncRun},
    {"perform", "LocalFileRequest break from streaming", LogWord::kLocalRunEnd},
    {"perform", "LocalFileRequest::perform finished%*", LogWord::kLocalRunEnd},
    {"perform", "async read %d ok in perform%*", LogWord::kAsyncDone},
    {"perform", "async read fail %d", LogWord::kAsyncDone},
    {"perform", "cancel async read %d", LogWord::kAsyncDone},
    {"perform", "local read begin version: %*", LogWord::kLocalRunBegin},
    {"progressCount", "handle:%p, Too long time no data comes%*", LogWord::kProblem},
    {"progressCount", "handle:%p, %d s no data comes, customer cancel read", LogWord::kProblem},
    {"read", "FluviaFile read: size=%d, position=%d, %*", LogWord::kPosition},
    {"read", "move position failed before read", LogWord::kProblem},
    {"read", "read failed in buffer stream status:%d", LogWord::kProblem},
    {"read", "readcount:%d, readoffset:%d, %*", LogWord::kQueueRead},
    {"read", "seek: %d , offset =%d, %*", LogWord::kLookedFor},
    {"receive", "contentSize:%d", LogWord::kSize},
    {"receive", "new revise content size is:%d", LogWord::kSize},
    {"resetStreaming", "no memory for a restart", LogWord::kProblem},
    {"resetStreaming", "no thread for a restart", LogWord::kProblem},
    {"runner", "destroy thread", LogWord::kThreadEnds},
    {"sendData", "(handle:%p) Data In size = %d, %*", LogWord::kDataIn},
    {"sendRequest", "errorCode:%d", LogWord::kRunResult},
    {"sendRequest", "http begin to get from:%s, %d~%d", LogWord::kRunOfUrl},
    {"streamIn", "new block %d begin from %d", LogWord::kNewBlock},
    {"streamIn", "size:%d, sz:%d, rdblock:%d, wtblock:%d, usedSize:%d, begin from:%d",
     LogWord::kStored},
    {"streamIn", "wait in streamIn", LogWord::kWriterWaits},
    {"streamIn", "wake up in streamIn", LogWord::kWriterWakes},
    {"streamIn", "wtblock:%d, usedSize:%d, rdTail block:%d", LogWord::kStoredMore},
    {"workBegin", "start failed: %*", LogWord::kProblem},
    {"x_fluvia_file_close", "Begin x_fluvia_file_close (handle: %d)", LogWord::kCloseBegin},
    {"x_fluvia_file_open", "Begin x_fluvia_file_open(url: %s)", LogWord::kOpenBegin},
    {"x_fluvia_file_open", "End x_fluvia_file_open(handle: %d)", LogWord::kOpenEnd},
    {"x_fluvia_file_open_x", "Begin x_fluvia_file_open_x(url: %s, buffersize: %d)",
     LogWord::kOpenBegin},
    {"x_fluvia_file_open_x", "End x_fluvia_file_open_x(handle: %d)", LogWord::kOpenEnd},
    {"x_fluvia_file_read", "befor x_fluvia_file_read(handle: %d, size: %d)", LogWord::kReadBegin},
    {"x_fluvia_file_read", "end x_fluvia_file_read : %d", LogWord::kReadEnd},
    {"x_fluvia_file_read_abort", "before x_fluvia_file_read_abort(handle: %d, reqID: %d)",
     LogWord::kAbort},
    {"x_fluvia_file_read_async", "before x_fluvia_file_read_async(handle: %d, size: %d)",
     LogWord::kAsyncBegin},
    {"x_fluvia_file_read_async", "end x_fluvia_file_read_async(reqID: %d)", LogWord::kAsyncIssued},
    {"x_fluvia_file_seek", "x_fluvia_file_seek begin(handle: %d, offset: %d)", LogWord::kSeekBegin},
    {"x_fluvia_file_seek", "x_fluvia_file_seek end(FVFR_FAILED)", LogWord::kSeekFailed},
    {"x_fluvia_file_seek", "x_fluvia_file_seek end(curOffset: %d)", LogWord::kSeekEnd},
    {"x_fluvia_file_size", "x_fluvia_file_size end(size: %d)", LogWord::kSize},
};

bool isDigit(char c) { return c >= '0' && c <= '9'; }

void skipSpaces(std::string_view* text) {
  while (!text->empty() && text->front() == ' ') text->remove_prefix(1);
}

// Takes a number with its sign from the front. A number with more digits than any offset does not
// match.
bool takeNumber(std::string_view* text, long long* number) {
  std::string_view rest = *text;
  skipSpaces(&rest);
  const bool negative = !rest.empty() && rest.front() == '-';
  if (negative) rest.remove_prefix(1);
  constexpr size_t kMostDigits = 18;
  size_t digits = 0;
  long long value = 0;
  while (digits < rest.size() && isDigit(rest[digits])) {
    if (digits == kMostDigits) return false;
    value = value * 10 + (rest[digits++] - '0');
  }
  if (digits == 0) return false;
  *number = negative ? -value : value;
  *text = rest.substr(digits);
  return true;
}

bool fits(std::string_view pattern, std::string_view text, LogFact* fact, size_t numbers);

// %s: as long as the rest of the pattern still matches, so that a name may contain anything.
bool fitsAnything(std::string_view pattern, std::string_view text, LogFact* fact, size_t numbers) {
  for (size_t length = text.size() + 1; length-- > 0;) {
    if (fits(pattern, text.substr(length), fact, numbers)) {
      fact->text = text.substr(0, length);
      return true;
    }
    if (pattern.empty()) return false;
  }
  return false;
}

bool fits(std::string_view pattern, std::string_view text, LogFact* fact, size_t numbers) {
  while (!pattern.empty()) {
    if (pattern.front() == ' ') {
      if (text.empty() || text.front() != ' ') return false;
      skipSpaces(&text);
      pattern.remove_prefix(1);
    } else if (pattern.front() == '%') {
      const char kind = pattern[1];
      pattern.remove_prefix(2);
      if (kind == '*') return true;
      if (kind == 's') return fitsAnything(pattern, text, fact, numbers);
      if (kind == 'p') {
        const size_t length = text.find_first_of(",) ");
        if (length == 0 || length == std::string_view::npos) return false;
        text.remove_prefix(length);
      } else {
        if (numbers == fact->values.size() || !takeNumber(&text, &fact->values[numbers++])) {
          return false;
        }
      }
    } else {
      if (text.empty() || text.front() != pattern.front()) return false;
      text.remove_prefix(1);
      pattern.remove_prefix(1);
    }
  }
  return text.empty();
}

struct ByFunction {
  bool operator()(const Rule& rule, std::string_view name) const { return rule.function < name; }
  bool operator()(std::string_view name, const Rule& rule) const { return name < rule.function; }
};

}  // namespace

Rules rulesOf(std::string_view function) {
  std::string twin;
  if (function.substr(0, 9) == "c_fluvia_") {
    twin = "x" + std::string(function.substr(1));
    function = twin;
  }
  return std::equal_range(std::begin(kRules), std::end(kRules), function, ByFunction());
}

Beginnings beginningsOf(const Rules& rules) {
  Beginnings beginnings;
  for (const Rule* rule = rules.first; rule != rules.second; ++rule) {
    beginnings.set(static_cast<unsigned char>(rule->pattern[0]));
  }
  return beginnings;
}

bool recognise(std::string_view function, std::string_view text, LogFact* fact) {
  return recognise(rulesOf(function), text, fact);
}

bool recognise(const Rules& rules, std::string_view text, LogFact* fact) {
  while (!text.empty() && (text.back() == ' ' || text.back() == '\r')) text.remove_suffix(1);
  for (const Rule* rule = rules.first; rule != rules.second; ++rule) {
    fact->values.fill(0);
    fact->text = text;
    if (fits(rule->pattern, text, fact, 0)) {
      fact->word = rule->word;
      return true;
    }
  }
  return false;
}

}  // namespace tools
