#ifndef FLUVIAFS_TOOLS_TRACE_PAGEDATA_H_
#define FLUVIAFS_TOOLS_TRACE_PAGEDATA_H_

#include <string>
#include <vector>

#include "Lane.h"

namespace tools {

// Whole milliseconds; -1 for an unknown moment.
long long milliseconds(double seconds);
// As the page's style and program name it.
const char* outcomeName(Connection::Outcome outcome);

// What the page's program draws, as JSON that is safe inside a script element.
std::string pageData(double duration, const std::vector<const Lane*>& lanes);

}  // namespace tools

#endif  // FLUVIAFS_TOOLS_TRACE_PAGEDATA_H_
