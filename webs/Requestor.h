#ifndef FLUVIAFS_WEBS_REQUESTOR_H_
#define FLUVIAFS_WEBS_REQUESTOR_H_

namespace webs {

// Receiver of a response body; the HTTP session passes each piece to it.
//
// Threads:   called on the thread that performs the transfer, one call at a time for a session.
// Ownership: a session holds one receiver and does not own it.
class Requestor {
 public:
  // Takes one piece of the body. handle is the session's transfer handle, version the caller's tag
  // of the transfer. Returns the bytes consumed; anything but size ends the transfer.
  virtual int receive(void* data, int size, void* handle, int version) = 0;
  // Called before the first piece of a response.
  virtual void readyReceive() = 0;
  // Called after the last piece.
  virtual void finishReceive() = 0;
  virtual ~Requestor() = default;
};

}  // namespace webs

#endif  // FLUVIAFS_WEBS_REQUESTOR_H_
