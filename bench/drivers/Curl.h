#ifndef FLUVIAFS_BENCH_DRIVERS_CURL_H_
#define FLUVIAFS_BENCH_DRIVERS_CURL_H_

#include <curl/curl.h>

#include <string>

#include "bench/common/Options.h"

namespace bench {

using WriteCallback = size_t (*)(char*, size_t, size_t, void*);

// Returns an easy handle for url with the settings that all drivers over libcurl share: the
// library's receive buffer, and its checks of certificates. Returns null if libcurl returns none.
CURL* makeCurl(const Options& options, const std::string& url, WriteCallback write, void* receiver);

}  // namespace bench

#endif  // FLUVIAFS_BENCH_DRIVERS_CURL_H_
