#ifndef FLUVIAFS_TESTS_SUPPORT_SILENTSTDERR_H_
#define FLUVIAFS_TESTS_SUPPORT_SILENTSTDERR_H_

namespace support {

// Sends standard error, where libcurl tells of every request, nowhere from now on; a sanitizer's
// report goes where it went. Once in a process does for all times.
void silenceStderr();

}  // namespace support

#endif  // FLUVIAFS_TESTS_SUPPORT_SILENTSTDERR_H_
