#ifndef FLUVIAFS_BENCH_DRIVERS_CURL_H_
#define FLUVIAFS_BENCH_DRIVERS_CURL_H_

#include <curl/curl.h>

#include <string>

#include "bench/common/Options.h"

namespace bench {

using WriteCallback = size_t (*)(char*, size_t, size_t, void*);

// An easy handle for url with what the drivers over libcurl have in common: the library's own
// receive buffer, and its checks of certificates. Null when libcurl gives none.
CURL* makeCurl(const Options& options, const std::string& url, WriteCallback write, void* receiver);

}  // namespace bench

#endif  // FLUVIAFS_BENCH_DRIVERS_CURL_H_
