#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "tests/support/CapturedStderr.h"
#include "tests/support/Pattern.h"
#include "util/BufferBlock.h"
#include "util/BufferBlockPoolManager.h"

namespace {

using util::BufferBlock;
using util::BufferBlockPool;
using util::BufferBlockPoolManager;

unsigned int put(BufferBlock* block, const std::string& bytes) {
  std::string copy = bytes;
  return block->in(reinterpret_cast<unsigned char*>(&copy[0]),
                   static_cast<unsigned int>(copy.size()));
}

std::string take(const BufferBlock& block, unsigned int offset, unsigned int length) {
  std::string bytes(length, '?');
  unsigned int got = 77;
  block.out(offset, &bytes[0], length, &got);
  bytes.resize(got);
  return bytes;
}

TEST(BufferBlock, IsEmptyAndUnusedWhenMade) {
  const BufferBlock block(100, 5);
  EXPECT_EQ(block.size(), 100u);
  EXPECT_EQ(block.sizeOfFree(), 100u);
  EXPECT_EQ(block.payloadSize(), 0u);
  EXPECT_EQ(block.getBeginningSeqNum(), 0);
  EXPECT_EQ(block.getId(), 5);
  EXPECT_TRUE(block.isUnused());
}

TEST(BufferBlock, TakesOnlyWhatFits) {
  BufferBlock block(10, 0);
  EXPECT_EQ(put(&block, "abcdef"), 6u);
  EXPECT_EQ(put(&block, "ghijkl"), 4u);
  EXPECT_EQ(put(&block, "m"), 0u) << "full";
  EXPECT_EQ(take(block, 0, 20), "abcdefghij");
}

TEST(BufferBlock, GivesNothingAtOrPastThePayload) {
  BufferBlock block(10, 0);
  put(&block, "abc");
  EXPECT_EQ(take(block, 1, 10), "bc");
  EXPECT_EQ(take(block, 2, 1), "c");
  EXPECT_EQ(take(block, 3, 1), "");
  EXPECT_EQ(take(block, 4, 1), "");
  EXPECT_EQ(take(block, 4000000000u, 1), "");
}

TEST(BufferBlock, KnowsWhichOffsetsItHoldsAndWillHold) {
  BufferBlock block(10, 0);
  block.setBeginningSeqNum(1000, true);
  put(&block, "abc");
  EXPECT_FALSE(block.isContained(999));
  EXPECT_TRUE(block.isContained(1000));
  EXPECT_TRUE(block.isContained(1002));
  EXPECT_FALSE(block.isContained(1003));
  EXPECT_TRUE(block.willContained(1003));
  EXPECT_TRUE(block.willContained(1009));
  EXPECT_FALSE(block.willContained(1010));
  EXPECT_FALSE(block.willContained(999));
  EXPECT_TRUE(block.isForwarding(1000));
  EXPECT_FALSE(block.isForwarding(999));
  EXPECT_EQ(block.end(), 1003);
}

TEST(BufferBlock, RebasingDiscardsTheContents) {
  BufferBlock block(10, 0);
  put(&block, "abc");
  block.setBeginningSeqNum(50, true);
  EXPECT_EQ(block.payloadSize(), 0u);
  EXPECT_EQ(block.getBeginningSeqNum(), 50);
}

TEST(BufferBlockPool, BlockComesBackEmptyAfterPush) {
  BufferBlockPool pool(32768);
  BufferBlock* block = pool.pop();
  block->setId(7);
  block->setBeginningSeqNum(65536, true);
  put(block, "abc");
  pool.push(block);
  EXPECT_EQ(pool.getFreeBlockNumber(), 1);
  ASSERT_EQ(pool.pop(), block) << "idle blocks are reused";
  EXPECT_EQ(block->getId(), 0);
  EXPECT_EQ(block->payloadSize(), 0u);
  EXPECT_EQ(block->getBeginningSeqNum(), 0);
  EXPECT_EQ(pool.getTotalBlockNumber(), 1);
  EXPECT_EQ(pool.getFreeBlockNumber(), 0);
  delete block;
}

TEST(BufferBlockPool, IdleBlocksAreReusedInTheOrderTheyCameBack) {
  BufferBlockPool pool(100);
  BufferBlock* first = pool.pop();
  BufferBlock* second = pool.pop();
  pool.push(second);
  pool.push(first);
  EXPECT_EQ(pool.pop(), second);
  EXPECT_EQ(pool.pop(), first);
  delete first;
  delete second;
}

TEST(BufferBlockPool, WritesOffBlocksThatTheirOwnerFreed) {
  BufferBlockPool pool(100);
  delete pool.pop();
  EXPECT_TRUE(pool.reduceblocksize(1));
  EXPECT_EQ(pool.getTotalBlockNumber(), 0);
}

TEST(BufferBlockPool, ReleaseFreesOnlyWithoutReferences) {
  BufferBlockPool pool(100);
  EXPECT_TRUE(pool.gethasblockremove());
  BufferBlock* block = pool.pop();
  pool.push(block);
  pool.referenced();
  pool.release();
  EXPECT_EQ(pool.getFreeBlockNumber(), 0) << "the idle block is dropped";
  EXPECT_EQ(pool.getTotalBlockNumber(), 0);
  EXPECT_EQ(block->size(), 100u) << "and not freed";
  pool.dereferenced();
  pool.push(block);
  pool.release();
  EXPECT_TRUE(pool.gethasblockremove());
  EXPECT_EQ(pool.getFreeBlockNumber(), 0);
}

TEST(BufferBlockPoolManager, OnePoolForEachSizeUntilTheLastReference) {
  BufferBlockPoolManager manager;
  BufferBlockPool* pool = manager.claimPool(100);
  EXPECT_EQ(manager.claimPool(100), pool);
  BufferBlockPool* const other = manager.claimPool(200);
  EXPECT_NE(other, pool);
  EXPECT_EQ(pool->dereferencount(), 2);
  manager.declaimPool(pool);
  EXPECT_EQ(manager.claimPool(100), pool) << "still listed";
  manager.declaimPool(pool);
  manager.declaimPool(pool);
  BufferBlockPool* const next = manager.claimPool(100);
  EXPECT_NE(next, pool) << "unlisted with its last reference";
  manager.declaimPool(next);
  manager.declaimPool(other);
}

TEST(BufferBlockPoolManager, CountsTheMemoryOfListedPools) {
  BufferBlockPoolManager manager;
  BufferBlockPool* pool = manager.claimPool(1000);
  BufferBlock* blocks[4];
  for (BufferBlock*& block : blocks) block = pool->pop();
  for (int i = 0; i < 3; ++i) pool->push(blocks[i]);
  EXPECT_EQ(manager.getTotalMemorySize(), 4000);
  EXPECT_EQ(manager.getFreeMemorySize(), 3000);
  pool->push(blocks[3]);
  manager.declaimPool(pool);
  EXPECT_EQ(manager.getTotalMemorySize(), 0);
  EXPECT_EQ(manager.getFreeMemorySize(), 0);
}

TEST(BufferBlockPoolManager, LogsItsSteps) {
  const support::CapturedStderr log(3);
  BufferBlockPoolManager manager;
  BufferBlockPool* pool = manager.claimPool(100);
  manager.claimPool(100);
  manager.declaimPool(pool);
  manager.declaimPool(pool);
  EXPECT_EQ(log.count("claimPool: claimPool 1"), 2);
  EXPECT_EQ(log.count("claimPool: claimPool 2"), 2);
  EXPECT_EQ(log.count("claimPool: claimPool 3"), 1);
  EXPECT_EQ(log.count("claimPool: claimPool 4"), 2);
  EXPECT_EQ(log.count("declaimPool: declaimPool, pool->dereferencount() = 2"), 1);
  EXPECT_EQ(log.count("declaimPool: declaimPool, pool->dereferencount() = 1"), 1);
  EXPECT_EQ(log.count("declaimPool: declaimPool2"), 2);
}

}  // namespace
