#ifndef FLUVIAFS_WEBS_TRANSFERSHARE_H_
#define FLUVIAFS_WEBS_TRANSFERSHARE_H_

#include <atomic>

#include "util/NeverDestroyed.h"
#include "util/Semaphore.h"

namespace webs {

// What the sessions of the process share through libcurl: the addresses of host names, and TLS
// sessions, so that the second connection to a host costs neither a look-up nor a full handshake.
//
// An address is kept for libcurl's 60 s, and at most until a connection to some host fails: it may
// have moved. A TLS session is taken up only by a handle with the same host, port, certificate
// checks, authority and client certificate, which libcurl compares. It does not compare the private
// key and its type: a session with one of those keeps its TLS sessions to itself.
//
// Threads:   any. The locks are libcurl's, held only inside it; no other lock is taken under them.
// Ownership: lives as long as the process: transfers may run while it exits.
class TransferShare {
 public:
  // To be called after libcurl's own initialisation.
  static TransferShare& instance();

  // For CURLOPT_SHARE: names and TLS sessions, or names only. Null without memory for it, which
  // shares nothing.
  void* all() const { return all_; }
  void* names() const { return names_; }

  // A connection failed: the next transfer of any session looks its name up anew.
  void distrustNames() { distrusted_ = true; }
  // Whether this is that transfer; says so once.
  bool takeDistrust() { return distrusted_ && distrusted_.exchange(false); }

 private:
  friend class util::NeverDestroyed<TransferShare>;
  // One lock for each kind of data that libcurl knows.
  struct Locks;

  TransferShare();

  void* all_;
  void* names_;
  std::atomic<bool> distrusted_;
};

}  // namespace webs

#endif  // FLUVIAFS_WEBS_TRANSFERSHARE_H_
