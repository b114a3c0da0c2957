#ifndef FLUVIAFS_TOOLS_TRACE_PAGETEXT_H_
#define FLUVIAFS_TOOLS_TRACE_PAGETEXT_H_

#include <string>

#include "Lane.h"

namespace tools {

// Untrusted text as UTF-8: bytes that are not, and control characters, become U+FFFD.
std::string plainText(const std::string& text);
// The same as HTML, markup escaped.
std::string htmlText(const std::string& text);
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
