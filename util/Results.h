#ifndef FLUVIAFS_UTIL_RESULTS_H_
#define FLUVIAFS_UTIL_RESULTS_H_

namespace util {

// Results of a read and of the other calls. Callers of the C interface see these numbers; api/
// checks that the public header has the same ones.
constexpr int READ_OK = 0;
constexpr int READ_EXITING = -1;  // the stream had ended before the read began
constexpr int READ_FAILED = -4;
constexpr int READ_TIMEOUT = -6;
constexpr int READ_END = -13;
constexpr int READ_NOT_AVAILABLE = -17;
constexpr int READ_NOT_FOUND = -21;

constexpr int CALL_OK = READ_OK;
constexpr int NOT_APPLIED = -1;  // a setting or a request id that is not valid
constexpr int CALL_FAILED = READ_FAILED;
constexpr int SEEK_REFUSED = -12;

}  // namespace util

#endif  // FLUVIAFS_UTIL_RESULTS_H_
