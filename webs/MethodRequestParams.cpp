#include <deque>
#include <memory>

#include "util/NeverDestroyed.h"
#include "webs/MethodRequest.h"

namespace webs {

namespace {

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
