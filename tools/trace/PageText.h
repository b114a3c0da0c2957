#ifndef FLUVIAFS_TOOLS_TRACE_PAGETEXT_H_
#define FLUVIAFS_TOOLS_TRACE_PAGETEXT_H_

#include <string>

#include "Lane.h"

namespace tools {

// Untrusted text as HTML: markup is escaped; bytes that are not UTF-8 and control characters become
// U+FFFD.
std::string htmlText(const std::string& text);
// Same as a JSON string with quotes, safe inside a script element.
std::string scriptString(const std::string& text);
// A name without the user and password of a URL.
std::string withoutPassword(const std::string& name);

// "1.50 s", "12 ms": a duration; "12.345": a moment on the axis, in seconds.
std::string shownSeconds(double seconds);
std::string shownMoment(double seconds);
// "3.5 MiB": an offset or a size.
std::string shownBytes(long long bytes);
// "0-", "100-199", or "all" without a Range.
std::string shownRange(const Connection& connection);
// How a connection ended, with the codes.
std::string shownEnd(const Connection& connection);

// Why a reader waited, in one sentence, by the state of its connection meanwhile; and the same in
// two or three words.
std::string whyWaited(const Lane& lane, const Wait& wait);
std::string whyWaitedShortly(const Wait& wait);

}  // namespace tools

#endif  // FLUVIAFS_TOOLS_TRACE_PAGETEXT_H_
