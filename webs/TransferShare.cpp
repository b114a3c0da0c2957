#include "webs/TransferShare.h"

#include <curl/curl.h>

namespace webs {

struct TransferShare::Locks {
  util::Semaphore each[CURL_LOCK_DATA_LAST];

  static void lock(CURL* /*session*/, curl_lock_data data, curl_lock_access /*access*/,
                   void* locks) NO_THREAD_SAFETY_ANALYSIS {
    static_cast<Locks*>(locks)->each[data].syncBegin();
  }
  static void unlock(CURL* /*session*/, curl_lock_data data,
                     void* locks) NO_THREAD_SAFETY_ANALYSIS {
    static_cast<Locks*>(locks)->each[data].syncEnd();
  }

  CURLSH* makeShare() {
    CURLSH* share = curl_share_init();
    if (share == nullptr) return nullptr;
    curl_share_setopt(share, CURLSHOPT_LOCKFUNC, &Locks::lock);
    curl_share_setopt(share, CURLSHOPT_UNLOCKFUNC, &Locks::unlock);
    curl_share_setopt(share, CURLSHOPT_USERDATA, this);
    curl_share_setopt(share, CURLSHOPT_SHARE, CURL_LOCK_DATA_DNS);
    return share;
  }
};

TransferShare::TransferShare() : all_(nullptr), names_(nullptr), distrusted_(false) {
  static util::NeverDestroyed<Locks> locksOfAll;
  static util::NeverDestroyed<Locks> locksOfNames;
  all_ = locksOfAll->makeShare();
  names_ = locksOfNames->makeShare();
  if (all_ != nullptr) curl_share_setopt(all_, CURLSHOPT_SHARE, CURL_LOCK_DATA_SSL_SESSION);
}

TransferShare& TransferShare::instance() {
  static util::NeverDestroyed<TransferShare> share;
  return share.get();
}

}  // namespace webs
