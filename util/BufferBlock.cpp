#include "util/BufferBlock.h"

#include <algorithm>
#include <cstring>

namespace util {

BufferBlock::BufferBlock(unsigned int capacity, int blockId)
    : data(capacity), payload(0), beginningSeqNum(0), fresh(true), id(blockId) {}

BufferBlock::~BufferBlock() = default;

unsigned int BufferBlock::in(unsigned char* src, unsigned int len) {
  const unsigned int count = std::min(len, sizeOfFree());
  if (count == 0) return 0;
  memcpy(data.data() + payload, src, count);
  payload += count;
  return count;
}

void BufferBlock::out(unsigned int offset, void* dst, unsigned int len,
                      unsigned int* outLen) const {
  if (offset >= payload) {
    *outLen = 0;
    return;
  }
  *outLen = std::min(len, payload - offset);
  if (*outLen != 0) memcpy(dst, data.data() + offset, *outLen);
}

void BufferBlock::setBeginningSeqNum(long long seq, bool isFresh) {
  beginningSeqNum = seq;
  payload = 0;
  fresh = isFresh;
}

void BufferBlock::setId(int blockId) { id = blockId; }

}  // namespace util
