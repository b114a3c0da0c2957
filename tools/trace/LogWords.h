#ifndef FLUVIAFS_TOOLS_TRACE_LOGWORDS_H_
#define FLUVIAFS_TOOLS_TRACE_LOGWORDS_H_

#include <array>
#include <bitset>
#include <string_view>
#include <utility>

namespace tools {

// The meaning of a line of the library's log, as far as the page needs it. The comments list the
// values, in the order of LogFact::values; "text" is LogFact::text.
enum class LogWord {
  kOpenBegin,      // text: the name
  kOpenEnd,        // handle
  kCloseBegin,     // handle
  kReadBegin,      // handle, bytes
  kReadEnd,        // result
  kAsyncBegin,     // handle, bytes
  kAsyncIssued,    // request
  kAsyncRun,       // bytes
  kAsyncDone,      // request
  kAbort,          // handle, request
  kSeekBegin,      // handle, offset
  kSeekEnd,        // offset
  kSeekFailed,     //
  kSize,           // bytes
  kPosition,       // bytes asked, offset
  kLookedFor,      // ok, offset
  kQueueRead,      // bytes, offset behind them
  kWaitAhead,      // offset
  kWaitBehind,     // offset
  kWaitInBlock,    // beginning of the block, offset
  kWaitGoesOn,     //
  kWakeUp,         //
  kStored,         // bytes, stored, block of the reader, block, bytes in it, its beginning
  kStoredMore,     // block, bytes in it
  kNewBlock,       // block, its beginning
  kPlacedBlock,    // block, its beginning
  kDroppedBlock,   // block
  kDumpBegin,      //
  kDumpBlock,      // block, beginning, end
  kDumpLine,       //
  kWriterWaits,    //
  kWriterWakes,    //
  kParked,         //
  kUnparked,       //
  kRunOfUrl,       // text: the name
  kRanged,         //
  kUnranged,       //
  kGetBegin,       // first, last (0: open); text: the URL
  kStatus,         // status
  kAddress,        // text
  kDataIn,         // bytes
  kGetEnd,         // libcurl's code, status, errno, bytes/s, bytes/s, offset behind the last byte
  kRunResult,      // result
  kLocalRunBegin,  //
  kLocalRunEnd,    //
  kEvent,          // number of the stream event
  kRestart,        // text: why
  kProblem,        // text
  kStreamEnd,      //
  kThreadEnds,     //
};

// A recognised line: its word and its values.
struct LogFact {
  LogWord word = LogWord::kThreadEnds;
  std::array<long long, 6> values{};
  std::string_view text;  // points into the line
};

// The known texts of a function, [first, second). Twins of the entry points ("c_fluvia_...") use
// the rules of the function that they are twins of.
struct Rule;
using Rules = std::pair<const Rule*, const Rule*>;
Rules rulesOf(std::string_view function);

// True if function, or the function with these rules, logs such a text; then sets *fact.
bool recognise(std::string_view function, std::string_view text, LogFact* fact);
bool recognise(const Rules& rules, std::string_view text, LogFact* fact);

// The characters that such texts begin with.
using Beginnings = std::bitset<256>;
Beginnings beginningsOf(const Rules& rules);
inline bool mayBegin(const Beginnings& beginnings, std::string_view text) {
  return !text.empty() && beginnings[static_cast<unsigned char>(text.front())];
}

}  // namespace tools

#endif  // FLUVIAFS_TOOLS_TRACE_LOGWORDS_H_
