#include "util/Log.h"
#include "webs/HttpFileRequest.h"

namespace webs {

void HttpFileRequest::setBreak() {
  FLUVIA_LOG(0, "HttpFileRequest::call setBreak");
  method.setBreak();
}

int HttpFileRequest::getDownloadStatus() {
  const int status = downloadStatus;
  FLUVIA_LOG(0, "download status:%d", status);
  return status;
}

void HttpFileRequest::setFeatureFlag(int flag) {
  FLUVIA_LOG(-4, "set feature flag:%d", flag);
  featureFlag = flag;
  method.setMethodFeatureFlag(flag);
}

void HttpFileRequest::setSpeed(long long bytesPerSecond) {
  FLUVIA_LOG(0, "set speed:%lld", bytesPerSecond);
  method.setSpeed(bytesPerSecond);
}

void HttpFileRequest::setUserAgent(const std::string& value) {
  {
    util::Lock lock(settingsLock);
    userAgent = value;
  }
  FLUVIA_LOG(0, "set UAString = %s", value.c_str());
  method.setUserAgent(value);
}

void HttpFileRequest::setProxy(const std::string& value) {
  {
    util::Lock lock(settingsLock);
    proxy = value;
  }
  FLUVIA_LOG(0, "set http proxy :%s", value.c_str());
  method.setProxy(value);
}

void HttpFileRequest::setCookie(const std::string& value) {
  {
    util::Lock lock(settingsLock);
    cookie = value;
  }
  FLUVIA_LOG(0, "set http cookie :%s", value.c_str());
  method.setCookie(value);
}

void HttpFileRequest::setCAPath(const std::string& value) {
  FLUVIA_LOG(0, "set CA path:%s", value.c_str());
  method.setCAPath(value);
}

void HttpFileRequest::setCA(const std::string& value) {
  FLUVIA_LOG(0, "set CA Info:%s", value.c_str());
  method.setCA(value);
}

void HttpFileRequest::setClientAuthertication(const std::string& value) {
  FLUVIA_LOG(0, "set Client Authertication:%s", value.c_str());
  method.setClientAuthertication(value);
}

void HttpFileRequest::setPrivateKey(const std::string& value) {
  FLUVIA_LOG(0, "set Private Key:%s", value.c_str());
  method.setPrivateKey(value);
}

void HttpFileRequest::setKeyType(const std::string& value) {
  FLUVIA_LOG(0, "set Key Type:%s", value.c_str());
  method.setKeyType(value);
}

void HttpFileRequest::setIpResolve(const std::string& value) {
  FLUVIA_LOG(0, "set ip resolve:%s", value.c_str());
  method.setIpResolve(value);
}

}  // namespace webs
