#ifndef FLUVIAFS_UTIL_BUFFERBLOCK_H_
#define FLUVIAFS_UTIL_BUFFERBLOCK_H_

#include <vector>

#include "util/ZeroedMemory.h"

namespace util {

// Fixed-capacity byte block that holds one contiguous stretch of a stream.
//
// Threads:   not locked; used by one owner at a time under the owner's lock.
// Ownership: belongs to the caller that popped it from a pool until it is pushed back.
// Invariant: 0 <= payload <= data.size(); data[0] is stream byte beginningSeqNum.
class BufferBlock {
 public:
  // capacity in bytes; the memory is zeroed. Throws std::bad_alloc.
  BufferBlock(unsigned int capacity, int id);
  virtual ~BufferBlock();
  BufferBlock(const BufferBlock&) = delete;
  BufferBlock& operator=(const BufferBlock&) = delete;

  // Appends at most sizeOfFree() bytes of src. Never waits. Returns the bytes taken.
  unsigned int in(unsigned char* src, unsigned int len);
  // Copies at most len bytes from data[offset] on to dst and stores the count in *outLen, 0 when
  // offset is at or past the payload.
  void out(unsigned int offset, void* dst, unsigned int len, unsigned int* outLen) const;

  // True if byte seq is buffered: seq is in [beginningSeqNum, beginningSeqNum + payload).
  bool isContained(long long seq) const { return beginningSeqNum <= seq && seq < end(); }
  // True if byte seq belongs into this block: [beginningSeqNum, beginningSeqNum + capacity).
  bool willContained(long long seq) const {
    return beginningSeqNum <= seq && seq < beginningSeqNum + size();
  }
  // True when seq lies at or after the first byte.
  bool isForwarding(long long seq) const { return seq >= beginningSeqNum; }

  long long getBeginningSeqNum() const { return beginningSeqNum; }
  // Rebases the block to seq and discards its contents.
  void setBeginningSeqNum(long long seq, bool fresh);
  unsigned int sizeOfFree() const { return size() - payload; }
  unsigned int payloadSize() const { return payload; }
  unsigned int size() const { return static_cast<unsigned int>(data.size()); }
  // First stream offset that is not buffered: beginningSeqNum + payload.
  long long end() const { return beginningSeqNum + payload; }
  // Beginning and payload are both 0: nothing of the stream was put here.
  bool isUnused() const { return beginningSeqNum == 0 && payload == 0; }

  void setId(int id);
  int getId() const { return id; }

 private:
  std::vector<unsigned char, ZeroedMemory<unsigned char>> data;
  unsigned int payload;
  long long beginningSeqNum;
  bool fresh;
  int id;
};

}  // namespace util

#endif  // FLUVIAFS_UTIL_BUFFERBLOCK_H_
