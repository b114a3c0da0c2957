#ifndef FLUVIAFS_EXAMPLES_WEBSERVICE_SERVICECALL_H_
#define FLUVIAFS_EXAMPLES_WEBSERVICE_SERVICECALL_H_

#include <string>
#include <utility>
#include <vector>

#include "webs/MethodRequest.h"
#include "webs/MethodResponse.h"

// One call of a web service: a GET whose answer ends up in a response.
//
// Threads:   call() waits for the whole answer on the caller's thread.
// Ownership: the response is not owned and must outlive the call.
class ServiceCall {
 public:
  using Parameters = std::vector<std::pair<std::string, std::string>>;

  ServiceCall(webs::MethodResponse* response, const std::string& base);

  // Gets base?name=value&... Returns 0, or what the session says went wrong; the response has
  // interpreted the answer in both cases, because services explain their errors in the body.
  int call(const Parameters& parameters);

 private:
  webs::MethodResponse* response_;
  std::string base_;
  webs::MethodRequest session_;
};

// The text as it may stand in a query: everything but letters, digits and "-._~" as %XX.
std::string percentEncoded(const std::string& text);

#endif  // FLUVIAFS_EXAMPLES_WEBSERVICE_SERVICECALL_H_
