#include "tests/support/QueueProbe.h"

#include <sstream>
#include <vector>

#include "tests/support/Pattern.h"

namespace util {

namespace {

// Returns the first wrong byte of a block, or -1.
long long wrongByte(const BufferBlock& block) {
  std::vector<char> bytes(block.payloadSize());
  unsigned int got = 0;
  block.out(0, bytes.data(), block.payloadSize(), &got);
  return support::firstDifference(static_cast<unsigned long long>(block.getBeginningSeqNum()),
                                  bytes.data(), got);
}

}  // namespace

std::string BufferQueueProbe::fault(BufferQueue& queue, int round) {
  Lock feed(queue.feedLock);
  std::ostringstream text;
  long long end = -1;
  const int read = round % static_cast<int>(queue.blocks.size());
  int index = 0;
  for (const BufferBlock* block : queue.blocks) {
    if (block->isUnused()) continue;
    if (block->getBeginningSeqNum() < end) {
      text << "block " << block->getId() << " begins at " << block->getBeginningSeqNum()
           << ", before the end of its predecessor " << end << "; ";
    }
    end = block->end();
    const long long wrong = index++ == read ? wrongByte(*block) : -1;
    if (wrong >= 0) {
      text << "block " << block->getId() << " at " << block->getBeginningSeqNum()
           << " holds a wrong byte " << wrong << "; ";
    }
  }
  if (queue.restarts.noted != queue.version && queue.streamFrom != (*queue.wtHead)->end()) {
    text << "the next connection starts at " << queue.streamFrom << ", not at the write head "
         << (*queue.wtHead)->end() << "; ";
  }
  return text.str();
}

std::string BufferQueueProbe::describe(BufferQueue& queue) {
  Lock feed(queue.feedLock);
  std::ostringstream text;
  text << "readOffset " << queue.readOffset << " status " << queue.streamStatus << " retries "
       << queue.retryCount << " size " << queue.contentSize << " state " << queue.connection.state
       << " needFeed " << queue.needFeed << " connecting " << queue.connecting << " active "
       << queue.activeWorkNum << " version " << queue.version << " noted " << queue.restarts.noted
       << " started " << queue.connection.version << " from " << queue.streamFrom << " length "
       << queue.streamLength << " readRunning " << queue.readRunning << " break "
       << queue.breakRequested << "\n";
  for (auto it = queue.blocks.begin(); it != queue.blocks.end(); ++it) {
    text << (it == queue.rdTail ? " R" : "  ") << (it == queue.wtHead ? "W " : "  ")
         << (*it)->getId() << ": " << (*it)->getBeginningSeqNum() << " ~ " << (*it)->end() << "\n";
  }
  return text.str();
}

void BufferQueueProbe::ask(BufferQueue& queue, long long offset) {
  Lock feed(queue.feedLock);
  queue.readOffset = offset;
  queue.needFeed = true;
}

void BufferQueueProbe::arrange(BufferQueue& queue,
                               const std::vector<std::pair<long long, unsigned int>>& held) {
  Lock feed(queue.feedLock);
  auto block = queue.blocks.begin();
  for (const auto& part : held) {
    std::string bytes = support::pattern(static_cast<unsigned long long>(part.first), part.second);
    (*block)->setBeginningSeqNum(part.first, true);
    (*block)->in(reinterpret_cast<unsigned char*>(&bytes[0]), part.second);
    ++block;
  }
  queue.rdTail = queue.blocks.begin();
  queue.wtHead = queue.blocks.begin();
}

void BufferQueueProbe::keepUp(BufferQueue& queue) {
  Lock feed(queue.feedLock);
  queue.pace.waited(true);
}

void BufferQueueProbe::waitWoken(BufferQueue& queue, long long offset) {
  Lock feed(queue.feedLock);
  queue.readOffset = offset;
  queue.readRunning = true;
  queue.needFeed = true;
  queue.wish.kind = ReaderWish::kBlock;
  queue.wish.asks = true;
  queue.wish.woken = true;
  queue.wish.until = offset + 1;
}

void BufferQueueProbe::announce(BufferQueue& queue, bool wakes) {
  Lock feed(queue.feedLock);
  queue.restartFromWriteHead();
  if (wakes) queue.wakeAll();
}

void BufferQueueProbe::changeHead(BufferQueue& queue) {
  Lock feed(queue.feedLock);
  queue.headCache.data[BufferQueue::kBlockSize - 1] ^= 1;
}

void BufferQueueProbe::wake(BufferQueue& queue) {
  Lock feed(queue.feedLock);
  queue.feedLock.notifyAll(0);
}

}  // namespace util
