#ifndef FLUVIAFS_WEBS_SSLMULTITHREAD_H_
#define FLUVIAFS_WEBS_SSLMULTITHREAD_H_

// Process-wide mutexes for TLS on several threads, as many as the crypto library asks for. No
// locking callback is registered: the crypto library locks by itself.
//
// Threads:   any; guarded.
// Ownership: one array for the process.

// Creates the array. Returns 0, also if it exists already; -2 if memory runs out.
int cd_ssl_multithread_setup();
// Frees the array. Returns 0, also if there is none. No TLS transfer may run.
int cd_ssl_multithread_cleanup();

#endif  // FLUVIAFS_WEBS_SSLMULTITHREAD_H_
