#ifndef FLUVIAFS_TOOLS_TRACE_CONNECTIONEND_H_
#define FLUVIAFS_TOOLS_TRACE_CONNECTIONEND_H_

#include <string>

#include "Lane.h"

namespace tools {

// The library's result of a connection, as its log shows it: the library's numbers below 0,
// libcurl's from 0 on. Tools include only the public header; the tests check that the library has
// the same numbers.
enum RunResult {
  RUN_STALLED = -2,  // no byte for too long
  RUN_BROKEN = -1,   // aborted at a reader's request while no byte came
  RUN_COMPLETE = 0,
  RUN_UNKNOWN_HOST = 6,
  RUN_NOT_CONNECTED = 7,
  RUN_PARTIAL = 18,
  RUN_WRITE_REFUSED = 23,
  RUN_TIMED_OUT = 28,
  RUN_TLS_REFUSED = 35,
  RUN_ABORTED = 42,
  RUN_REDIRECTED_TOO_OFTEN = 47,
  RUN_NO_ANSWER = 52,
  RUN_NOT_SENT = 55,
  RUN_NOT_RECEIVED = 56,
  RUN_NOT_TRUSTED = 60,
  RUN_FIRST_ERROR_STATUS = 400
};

// Sets outcome and why of a connection that has ended, from its code and status.
void explainEnd(Connection* connection);
// Corrects them by the HTTP producer's result: with RUN_STALLED and RUN_BROKEN the producer itself
// ended the connection.
void explainResult(int result, Connection* connection);
// Name of a stream event; empty for an unknown number.
std::string eventName(int event);

}  // namespace tools

#endif  // FLUVIAFS_TOOLS_TRACE_CONNECTIONEND_H_
