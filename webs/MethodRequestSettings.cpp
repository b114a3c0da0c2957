#include <algorithm>

#include "util/Log.h"
#include "webs/MethodRequest.h"
#include "webs/MethodRequestCallbacks.h"
#include "webs/TransferShare.h"

namespace webs {

namespace {

constexpr int kAnyFamily = 0;
constexpr int kIPv4 = 1;
constexpr int kIPv6 = 2;

// A header value ends where the line ends: the rest would be sent as additional headers.
std::string firstLine(const std::string& value) {
  return value.substr(0, value.find_first_of("\r\n"));
}

}  // namespace

void MethodRequest::setOptions(std::initializer_list<Option> options) {
  util::Lock lock(*this);
  for (const Option& option : options) {
    // A running transfer reads the strings that setting an option would free.
    if (running) {
      // Only the last value counts: a transfer may run for hours while its caller continues to set
      // values.
      keptOptions.erase(
          std::remove_if(keptOptions.begin(), keptOptions.end(),
                         [&](const Option& kept) { return kept.option == option.option; }),
          keptOptions.end());
      keptOptions.push_back(option);
    } else {
      applyOption(option);
    }
  }
}

void MethodRequest::applyOption(const Option& option) {
  switch (option.kind) {
    case Option::kText:
      curl_easy_setopt(curl, option.option, option.text.c_str());
      break;
    case Option::kNumber:
      curl_easy_setopt(curl, option.option, option.number);
      break;
    case Option::kPointer:
      curl_easy_setopt(curl, option.option, option.pointer);
      break;
  }
}

// From here on only this session's own transfers provide TLS sessions for reuse.
MethodRequest::Option MethodRequest::ownTlsSessions() {
  return Option(CURLOPT_SHARE, TransferShare::instance().names());
}

void MethodRequest::setUserAgent(const std::string& value) {
  setOptions({Option(CURLOPT_USERAGENT, firstLine(value))});
}

void MethodRequest::setProxy(const std::string& value) {
  setOptions({Option(CURLOPT_PROXY, value)});
}

void MethodRequest::setCookie(const std::string& value) {
  setOptions({Option(CURLOPT_COOKIE, firstLine(value))});
}

void MethodRequest::setCAPath(const std::string& value) {
  FLUVIA_LOG(-4, "setCAPath: %s", value.c_str());
  setOptions({Option(CURLOPT_CAPATH, value), Option(CURLOPT_SSL_VERIFYPEER, 1L),
              Option(CURLOPT_SSL_VERIFYHOST, 2L)});
}

void MethodRequest::setCA(const std::string& value) {
  FLUVIA_LOG(-4, "setCA: %s", value.c_str());
  setOptions({Option(CURLOPT_CAINFO, value), Option(CURLOPT_SSL_VERIFYPEER, 1L),
              Option(CURLOPT_SSL_VERIFYHOST, 2L)});
}

void MethodRequest::setClientAuthertication(const std::string& value) {
  setOptions({Option(CURLOPT_SSLCERT, value)});
}

void MethodRequest::setPrivateKey(const std::string& value) {
  setOptions({Option(CURLOPT_SSLKEY, value), ownTlsSessions()});
}

void MethodRequest::setKeyType(const std::string& value) {
  setOptions({Option(CURLOPT_SSLKEYTYPE, value), ownTlsSessions()});
}

void MethodRequest::setIpResolve(const std::string& type) {
  if (type == "IPv4") {
    setOptions({Option(CURLOPT_IPRESOLVE, static_cast<long>(CURL_IPRESOLVE_V4))});
    ipType = kIPv4;
    FLUVIA_LOG(0, "set IPv4");
  } else if (type == "IPv6") {
    setOptions({Option(CURLOPT_IPRESOLVE, static_cast<long>(CURL_IPRESOLVE_V6))});
    ipType = kIPv6;
    FLUVIA_LOG(0, "set IPv6");
  } else if (type == "whatever") {
    setOptions({Option(CURLOPT_IPRESOLVE, static_cast<long>(CURL_IPRESOLVE_WHATEVER))});
    ipType = kAnyFamily;
    FLUVIA_LOG(0, "set WHATEVER");
  } else {
    FLUVIA_LOG(0, "IpType is invalid (%s)", type.c_str());
  }
}

void MethodRequest::changeIptype(bool alternate) {
  const bool toIPv6 = (ipType == kIPv4) == alternate;
  if (toIPv6) {
    setOptions({Option(CURLOPT_IPRESOLVE, static_cast<long>(CURL_IPRESOLVE_V6))});
    FLUVIA_LOG(0, "set IPv6");
  } else {
    setOptions({Option(CURLOPT_IPRESOLVE, static_cast<long>(CURL_IPRESOLVE_V4))});
    FLUVIA_LOG(0, "set IPv4");
  }
}

void MethodRequest::setMethodFeatureFlag(int flag) {
  FLUVIA_LOG(-4, "handle:%p, MethodRequest set flag :%d", curl, flag);
  featureFlag = flag;
}

}  // namespace webs
