#ifndef FLUVIAFS_TOOLS_TRACE_CONNECTIONEND_H_
#define FLUVIAFS_TOOLS_TRACE_CONNECTIONEND_H_

#include <string>

#include "Lane.h"

namespace tools {

// Sets outcome and why of a connection that has ended, from its code and status.
void explainEnd(Connection* connection);
// Corrects them by what the HTTP producer made of the end: -1 and -2 are ends that it chose itself.
void explainResult(int result, Connection* connection);
// What a stream event is called; empty for a number that is none.
std::string eventName(int event);

}  // namespace tools

#endif  // FLUVIAFS_TOOLS_TRACE_CONNECTIONEND_H_
