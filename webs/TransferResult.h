#ifndef FLUVIAFS_WEBS_TRANSFERRESULT_H_
#define FLUVIAFS_WEBS_TRANSFERRESULT_H_

namespace webs {

// Result of a GET of a session. Numbers above 0 are libcurl's, which the session checks; those from
// FIRST_ERROR_STATUS on are the HTTP status of the response.
enum TransferResult {
  TRANSFER_STALLED = -2,  // no byte for too long
  TRANSFER_BROKEN = -1,   // aborted at a reader's request while no byte came
  TRANSFER_OK = 0,
  TRANSFER_UNKNOWN_HOST = 6,
  TRANSFER_NOT_CONNECTED = 7,
  TRANSFER_PARTIAL = 18,
  TRANSFER_WRITE_REFUSED = 23,  // the receiver refused a piece
  TRANSFER_OUT_OF_MEMORY = 27,
  TRANSFER_TIMED_OUT = 28,
  TRANSFER_ABORTED = 42,  // stopped
  FIRST_ERROR_STATUS = 400,
  TRANSFER_EMPTY = 404  // a successful transfer without a byte
};

}  // namespace webs

#endif  // FLUVIAFS_WEBS_TRANSFERRESULT_H_
