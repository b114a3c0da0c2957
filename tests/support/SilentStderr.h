#ifndef FLUVIAFS_TESTS_SUPPORT_SILENTSTDERR_H_
#define FLUVIAFS_TESTS_SUPPORT_SILENTSTDERR_H_

namespace support {

// Discards standard error, to which libcurl logs every request, from now on; a sanitizer's report
// still goes to its old destination. One call is enough for a process.
void silenceStderr();

}  // namespace support

#endif  // FLUVIAFS_TESTS_SUPPORT_SILENTSTDERR_H_
