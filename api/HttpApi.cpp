// The entry points of HTTP handles. Every c_ function is the x_ function of the same suffix.
#include <string>

#include "api/HandleTable.h"
#include "api/fluviafs.h"
#include "webs/DullFile.h"
#include "webs/HttpFileRequest.h"

using api::guarded;
using api::Handle;
using api::inRange;

namespace {

// Holds the HTTP producer behind a handle during one call; null if there is none.
class HttpUse {
 public:
  explicit HttpUse(const Handle& file) : shared_(file.get()), request_(nullptr) {
    FileRequest* request = shared_ ? shared_->getRequest() : nullptr;
    if (request != nullptr && request->getType() == SOURCE_HTTP) {
      request_ = static_cast<webs::HttpFileRequest*>(request);
    }
  }

  explicit operator bool() const { return request_ != nullptr; }
  webs::HttpFileRequest* operator->() const { return request_; }
  webs::HttpFileRequest& operator*() const { return *request_; }

 private:
  webs::FluviaFile::SharedUse shared_;
  webs::HttpFileRequest* request_;
};

// How a setting treats a null value: as one that cannot be applied, or as a caller's error that is
// reported before the handle is looked up. Players rely on both.
enum class NullValue { kNotApplied, kRefused };

// The common part of all settings that are texts.
int setText(const char* entry, int handle, const char* value, NullValue null,
            void (webs::HttpFileRequest::*setter)(const std::string&)) {
  return guarded(entry, static_cast<int>(FVFR_FAILED), [&](const char* function) -> int {
    if (!inRange(function, handle)) return FVFR_FAILED;
    if (null == NullValue::kRefused && value == nullptr) {
      FLUVIA_LOG_AS(function, 0, "NULL POINT\n");
      return FVFR_FAILED;
    }
    Handle file(handle);
    if (!file) return FVFR_FAILED;
    HttpUse http(file);
    if (!http || value == nullptr) {
      FLUVIA_LOG_AS(function, 0, "not http file or no set");
      return FVFR_NOT_APPLIED;
    }
    ((*http).*setter)(std::string(value));
    return FVFR_OK;
  });
}

}  // namespace

extern "C" {

int x_fluvia_file_set_featureflag(int handle, int flag) {
  return guarded(__func__, static_cast<int>(FVFR_FAILED), [&](const char* function) -> int {
    if (!inRange(function, handle)) return FVFR_FAILED;
    Handle file(handle);
    if (!file) {
      FLUVIA_LOG_AS(function, -4, "could not find handle:%d", handle);
      return FVFR_FAILED;
    }
    if (HttpUse http(file); http) {
      http->setFeatureFlag(flag);
    } else {
      FLUVIA_LOG_AS(function, -4, "not http file");
    }
    return FVFR_OK;
  });
}

long long x_fluvia_file_http_get_speed(int handle) {
  return guarded(__func__, static_cast<long long>(FVFR_FAILED),
                 [&](const char* function) -> long long {
                   if (!inRange(function, handle)) return FVFR_FAILED;
                   Handle file(handle);
                   if (!file) return FVFR_FAILED;
                   if (HttpUse http(file); http) return http->getSpeed();
                   FLUVIA_LOG_AS(function, 0, "not http file");
                   return 0;
                 });
}

int x_fluvia_file_http_set_speed(int handle, long long speed) {
  return guarded(__func__, static_cast<int>(FVFR_FAILED), [&](const char* function) -> int {
    if (!inRange(function, handle)) return FVFR_FAILED;
    Handle file(handle);
    if (!file) return FVFR_FAILED;
    if (HttpUse http(file); http) {
      http->setSpeed(speed);
    } else {
      FLUVIA_LOG_AS(function, 0, "not http file");
    }
    return FVFR_OK;
  });
}

const char* x_fluvia_file_http_get_content_type(int handle) {
  return guarded(__func__, static_cast<const char*>(nullptr),
                 [&](const char* function) -> const char* {
                   if (!inRange(function, handle)) return nullptr;
                   Handle file(handle);
                   if (!file) return nullptr;
                   if (HttpUse http(file); http) {
                     const std::string text = http->getContentType();
                     FLUVIA_LOG_AS(function, 0, "Content type:%s", text.c_str());
                     return file->keepContentType(text);
                   }
                   FLUVIA_LOG_AS(function, 0, "not http file");
                   return nullptr;
                 });
}

const char* x_fluvia_file_http_get_server_name(int handle) {
  return guarded(__func__, static_cast<const char*>(nullptr),
                 [&](const char* function) -> const char* {
                   if (!inRange(function, handle)) return nullptr;
                   Handle file(handle);
                   // A closed handle is not refused: it has no HTTP producer.
                   if (file) {
                     if (HttpUse http(file); http) {
                       const std::string text = http->getServerName();
                       FLUVIA_LOG_AS(function, 0, "Content type:%s", text.c_str());
                       return file->keepServerName(text);
                     }
                   }
                   FLUVIA_LOG_AS(function, 0, "not http file");
                   return nullptr;
                 });
}

int x_fluvia_file_http_set_userAgent(int handle, const char* value) {
  return setText(__func__, handle, value, NullValue::kNotApplied,
                 &webs::HttpFileRequest::setUserAgent);
}

int x_fluvia_file_http_set_proxy(int handle, const char* value) {
  return setText(__func__, handle, value, NullValue::kNotApplied, &webs::HttpFileRequest::setProxy);
}

int x_fluvia_file_http_set_CAPath(int handle, const char* value) {
  return setText(__func__, handle, value, NullValue::kNotApplied,
                 &webs::HttpFileRequest::setCAPath);
}

int x_fluvia_file_http_set_CA(int handle, const char* value) {
  return setText(__func__, handle, value, NullValue::kNotApplied, &webs::HttpFileRequest::setCA);
}

int x_fluvia_file_http_set_cookie(int handle, const char* value) {
  return setText(__func__, handle, value, NullValue::kNotApplied,
                 &webs::HttpFileRequest::setCookie);
}

int x_fluvia_file_http_set_client_authert(int handle, const char* value) {
  return setText(__func__, handle, value, NullValue::kRefused,
                 &webs::HttpFileRequest::setClientAuthertication);
}

int x_fluvia_file_http_set_private_key(int handle, const char* value) {
  return setText(__func__, handle, value, NullValue::kRefused,
                 &webs::HttpFileRequest::setPrivateKey);
}

int x_fluvia_file_http_set_key_type(int handle, const char* value) {
  return setText(__func__, handle, value, NullValue::kRefused, &webs::HttpFileRequest::setKeyType);
}

int x_fluvia_file_http_set_ip_resolve(int handle, const char* value) {
  return setText(__func__, handle, value, NullValue::kRefused,
                 &webs::HttpFileRequest::setIpResolve);
}

int x_fluvia_file_http_get_download_status(int handle) {
  return guarded(__func__, static_cast<int>(FVFR_FAILED), [&](const char* function) -> int {
    if (!inRange(function, handle)) return FVFR_FAILED;
    Handle file(handle);
    if (!file) return FVFR_FAILED;
    if (HttpUse http(file); http) {
      const int status = http->getDownloadStatus();
      FLUVIA_LOG_AS(function, 1, "download status : %d", status);
      return status;
    }
    FLUVIA_LOG_AS(function, 1, "not http file or no set");
    return FVFR_OK;
  });
}

int x_fluvia_file_http_get_url_ip(int handle, char* ipOut) {
  return guarded(__func__, static_cast<int>(FVFR_FAILED), [&](const char* function) -> int {
    if (!inRange(function, handle)) return FVFR_FAILED;
    Handle file(handle);
    if (!file) return FVFR_FAILED;
    if (HttpUse http(file); http) return http->getUrlIP(ipOut);
    FLUVIA_LOG_AS(function, 1, "not http file or no set");
    return FVFR_NOT_APPLIED;
  });
}

int x_fluvia_file_http_get_header(int handle, char* buffer, int size, int* length) {
  return guarded(__func__, static_cast<int>(FVFR_FAILED), [&](const char* function) -> int {
    if (!inRange(function, handle)) return FVFR_FAILED;
    Handle file(handle);
    if (!file) return FVFR_FAILED;
    if (HttpUse http(file); http) return http->getResponseHeader(buffer, size, length);
    FLUVIA_LOG_AS(function, 0, "not http file or no set");
    return FVFR_OK;
  });
}

int c_fluvia_file_set_featureflag(int handle, int flag) {
  return x_fluvia_file_set_featureflag(handle, flag);
}

long long c_fluvia_file_http_get_speed(int handle) { return x_fluvia_file_http_get_speed(handle); }

int c_fluvia_file_http_set_speed(int handle, long long speed) {
  return x_fluvia_file_http_set_speed(handle, speed);
}

const char* c_fluvia_file_http_get_content_type(int handle) {
  return x_fluvia_file_http_get_content_type(handle);
}

const char* c_fluvia_file_http_get_server_name(int handle) {
  return x_fluvia_file_http_get_server_name(handle);
}

int c_fluvia_file_http_set_userAgent(int handle, const char* value) {
  return x_fluvia_file_http_set_userAgent(handle, value);
}

int c_fluvia_file_http_set_proxy(int handle, const char* value) {
  return x_fluvia_file_http_set_proxy(handle, value);
}

int c_fluvia_file_http_set_CA(int handle, const char* value) {
  return x_fluvia_file_http_set_CA(handle, value);
}

int c_fluvia_file_http_set_cookie(int handle, const char* value) {
  return x_fluvia_file_http_set_cookie(handle, value);
}

int c_fluvia_file_http_set_client_authert(int handle, const char* value) {
  return x_fluvia_file_http_set_client_authert(handle, value);
}

int c_fluvia_file_http_set_private_key(int handle, const char* value) {
  return x_fluvia_file_http_set_private_key(handle, value);
}

int c_fluvia_file_http_set_key_type(int handle, const char* value) {
  return x_fluvia_file_http_set_key_type(handle, value);
}

int c_fluvia_file_http_set_ip_resolve(int handle, const char* value) {
  return x_fluvia_file_http_set_ip_resolve(handle, value);
}

int c_fluvia_file_http_get_download_status(int handle) {
  return x_fluvia_file_http_get_download_status(handle);
}

int c_fluvia_file_http_get_header(int handle, char* buffer, int size, int* length) {
  return x_fluvia_file_http_get_header(handle, buffer, size, length);
}

}  // extern "C"
