#ifndef FLUVIAFS_TOOLS_TRACE_LOGWORDS_H_
#define FLUVIAFS_TOOLS_TRACE_LOGWORDS_H_

#include <array>
#include <string_view>

namespace tools {

// What a line of the library's log tells, as far as a picture needs it. The values that come with
// it stand behind, in the order of LogFact::values; "text" is LogFact::text.
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

// A recognised line: its word and what stands in it.
struct LogFact {
  LogWord word = LogWord::kThreadEnds;
  std::array<long long, 6> values{};
  std::string_view text;  // points into the line
};

// Whether function logs such a text; *fact is set when it does. Twins of the entry points
// ("c_fluvia_...") count as the function that they are twins of.
bool recognise(std::string_view function, std::string_view text, LogFact* fact);

// Whether function logs any of the texts that recognise() knows.
bool hasWords(std::string_view function);

}  // namespace tools

#endif  // FLUVIAFS_TOOLS_TRACE_LOGWORDS_H_
