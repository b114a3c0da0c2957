#ifndef FLUVIAFS_EXAMPLES_WEBSERVICE_SERVICECALL_H_
#define FLUVIAFS_EXAMPLES_WEBSERVICE_SERVICECALL_H_

#include <string>
#include <utility>
#include <vector>

#include "webs/MethodRequest.h"
#include "webs/MethodResponse.h"

// One call of a web service: a GET whose body is parsed into a response.
//
// Threads:   call() waits for the whole body on the caller's thread.
// Ownership: the response is not owned and must outlive the call.
class ServiceCall {
 public:
  using Parameters = std::vector<std::pair<std::string, std::string>>;

  ServiceCall(webs::MethodResponse* response, const std::string& base);

  // Gets base?name=value&... Returns 0, or the session's error. In both cases the response has
  // interpreted the body, because services explain their errors there.
  int call(const Parameters& parameters);

 private:
  webs::MethodResponse* response_;
  std::string base_;
  webs::MethodRequest session_;
};

// Encodes the text for a query: everything but letters, digits and "-._~" becomes %XX.
std::string percentEncoded(const std::string& text);

#endif  // FLUVIAFS_EXAMPLES_WEBSERVICE_SERVICECALL_H_
