#ifndef FLUVIAFS_WEBS_SSLMULTITHREAD_H_
#define FLUVIAFS_WEBS_SSLMULTITHREAD_H_

// Process-wide mutexes for TLS on several threads, as many as the crypto library asks for. No
// locking callback is registered: the crypto library locks by itself.
//
// Threads:   any; guarded.
// Ownership: one array for the process.

// Makes the array. Returns 0 also when it exists already, -2 when memory runs out.
int cd_ssl_multithread_setup();
// Frees the array. Returns 0 also when there is none. No TLS transfer may run.
int cd_ssl_multithread_cleanup();

#endif  // FLUVIAFS_WEBS_SSLMULTITHREAD_H_
