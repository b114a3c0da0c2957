#ifndef FLUVIAFS_WEBS_METHODREQUESTCALLBACKS_H_
#define FLUVIAFS_WEBS_METHODREQUESTCALLBACKS_H_

// Some options of the session's table are deprecated in newer libcurl versions, but still work.
#define CURL_DISABLE_DEPRECATION
#include <curl/curl.h>

#include <exception>
#include <string>

#include "util/Log.h"
#include "webs/MethodRequest.h"

namespace webs {

// One libcurl option and its value. The settings queue these while a transfer runs.
struct MethodRequest::Option {
  enum Kind { kText, kNumber, kPointer };

  Option(CURLoption name, const std::string& value) : option(name), kind(kText), text(value) {}
  Option(CURLoption name, long value) : option(name), kind(kNumber), number(value) {}
  Option(CURLoption name, void* value) : option(name), kind(kPointer), pointer(value) {}

  CURLoption option;
  Kind kind;
  std::string text;
  long number = 0;
  void* pointer = nullptr;
};

// libcurl's results at the end of a transfer.
struct MethodRequest::Outcome {
  int code;
  bool bounded;
  double bytes;
};

// The functions that libcurl calls, with libcurl's own types. Each belongs to one session, passed
// as the user pointer, and lets no exception into libcurl's C frames.
//
// Threads: the transfer's thread, except closeSocket, which also runs where the handle is freed.
struct MethodRequestCallbacks {
  // Runs the body of a callback. If the body throws, logs the exception under function with what it
  // prevented, returns failure, and makes the transfer end as out of memory, whatever libcurl calls
  // it.
  template <typename Result, typename Body>
  static Result contained(MethodRequest* session, const char* function, const char* prevented,
                          Result failure, Body body) {
    try {
      return body();
    } catch (const std::exception& error) {
      FLUVIA_LOG_AS(function, -4, "%s: %s", prevented, error.what());
    } catch (...) {
      FLUVIA_LOG_AS(function, -4, "%s", prevented);
    }
    session->callbackFailed = true;
    return failure;
  }

  static size_t response(char* ptr, size_t size, size_t nmemb, void* session);
  static size_t header(char* ptr, size_t size, size_t nmemb, void* session);
  static int curl_progress_fct(void* session, double dltotal, double dlnow, double ultotal,
                               double ulnow);
  static curl_socket_t FluviaSocket(void* session, curlsocktype purpose,
                                    struct curl_sockaddr* address);
  static int closeSocket(void* session, curl_socket_t socketHandle);
};

}  // namespace webs

#endif  // FLUVIAFS_WEBS_METHODREQUESTCALLBACKS_H_
