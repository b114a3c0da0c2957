#ifndef FLUVIAFS_WEBS_TRANSFERSHARE_H_
#define FLUVIAFS_WEBS_TRANSFERSHARE_H_

#include <atomic>

#include "util/NeverDestroyed.h"
#include "util/Semaphore.h"

namespace webs {

// What the sessions of the process share through libcurl: the addresses of host names, and TLS
// sessions. So the second connection to a host needs neither a look-up nor a full handshake.
//
// An address is kept for libcurl's 60 s, and at most until a connection to any host fails: the
// address may have changed. A TLS session is reused only by a handle with the same host, port,
// certificate checks, authority and client certificate; libcurl compares these. It does not compare
// the private key and its type: a session with one of those does not share its TLS sessions.
//
// Threads:   any. The locks are libcurl's, held only inside it; no other lock is taken under them.
// Ownership: lives as long as the process: transfers may run while it exits.
class TransferShare {
 public:
  // Call this after libcurl's own initialisation.
  static TransferShare& instance();

  // For CURLOPT_SHARE: names and TLS sessions, or names only. Null, which shares nothing, if memory
  // runs out.
  void* all() const { return all_; }
  void* names() const { return names_; }

  // A connection failed: the next transfer of any session resolves its name again.
  void distrustNames() { distrusted_ = true; }
  // Returns true once after distrustNames(): to the transfer that must resolve its name again.
  bool takeDistrust() { return distrusted_ && distrusted_.exchange(false); }

 private:
  friend class util::NeverDestroyed<TransferShare>;
  // One lock for each kind of data that libcurl shares.
  struct Locks;

  TransferShare();

  void* all_;
  void* names_;
  std::atomic<bool> distrusted_;
};

}  // namespace webs

#endif  // FLUVIAFS_WEBS_TRANSFERSHARE_H_
