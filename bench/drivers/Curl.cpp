#include "bench/drivers/Curl.h"

namespace bench {

namespace {

constexpr long kReceiveBuffer = 524288;  // bytes; the size that the library sets

}  // namespace

CURL* makeCurl(const Options& options, const std::string& url, WriteCallback write,
               void* receiver) {
  CURL* curl = curl_easy_init();
  if (curl == nullptr) return nullptr;
  curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
  curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(curl, CURLOPT_FAILONERROR, 1L);
  curl_easy_setopt(curl, CURLOPT_BUFFERSIZE, kReceiveBuffer);
  curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, write);
  curl_easy_setopt(curl, CURLOPT_WRITEDATA, receiver);
  if (options.ca.empty()) {
    curl_easy_setopt(curl, CURLOPT_SSL_VERIFYPEER, 0L);
    curl_easy_setopt(curl, CURLOPT_SSL_VERIFYHOST, 0L);
  } else {
    curl_easy_setopt(curl, CURLOPT_CAINFO, options.ca.c_str());
  }
  return curl;
}

}  // namespace bench
