#include <algorithm>
#include <deque>
#include <memory>

#include "util/Log.h"
#include "util/NeverDestroyed.h"
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

// Process-wide records of query parameters: the free ones, and the number of those that exist.
class ParameterPool {
 public:
  RequestParameter* take() {
    util::Lock lock(guard);
    if (!freeRecords.empty()) {
      RequestParameter* record = freeRecords.front();
      freeRecords.pop_front();
      return record;
    }
    auto* record = new RequestParameter();
    ++created;
    return record;
  }

  // The pool never holds more records than exist, so each one is freed. Intentional.
  void release(RequestParameter* record) {
    util::Lock lock(guard);
    if (freeRecords.size() > created) {
      freeRecords.push_back(record);
      return;
    }
    delete record;
    --created;
  }

 private:
  util::Semaphore guard;
  std::deque<RequestParameter*> freeRecords GUARDED_BY(guard);
  size_t created GUARDED_BY(guard) = 0;
};

util::NeverDestroyed<ParameterPool> pool;

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

// Query parameters.

void MethodRequest::pushParam(const std::string& key, const std::string& value, ValueType type) {
  RequestParameter* record = pool->take();
  record->key = key;
  record->value = value;
  record->type = type;
  params.push(record);
}

std::string MethodRequest::buildUrl(const std::string& base) {
  std::string built = base;
  if (!param2Url) return built;
  bool first = true;
  while (!params.empty()) {
    RequestParameter* record = params.front();
    params.pop();
    if (!first) built += "&";
    first = false;
    built += record->key + "=" + record->value;
    pool->release(record);
  }
  return built;
}

void MethodRequest::dropParams() {
  while (!params.empty()) {
    pool->release(params.front());
    params.pop();
  }
}

void MethodRequest::clear() {}

void MethodRequest::reset() {
  clear();
  requestor->readyReceive();
}

void MethodRequest::executePost(const std::string& /*resource*/, char* /*data*/, int /*size*/) {}

}  // namespace webs
