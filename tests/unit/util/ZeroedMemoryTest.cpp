#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <thread>
#include <vector>

#include "util/ZeroedMemory.h"

namespace {

constexpr size_t kBlock = 32768;

size_t pageSize() { return static_cast<size_t>(sysconf(_SC_PAGESIZE)); }

// Returns how many pages of a mapping have memory; -1 if it is no mapping.
long pagesOf(void* memory, size_t size) {
  std::vector<unsigned char> resident(size / pageSize());
  if (mincore(memory, size, resident.data()) != 0) return errno == ENOMEM ? -1 : -2;
  return std::count_if(resident.begin(), resident.end(), [](int bits) { return bits & 1; });
}

bool isZero(const void* memory, size_t size) {
  const auto* bytes = static_cast<const unsigned char*>(memory);
  return bytes[0] == 0 && memcmp(bytes, bytes + 1, size - 1) == 0;
}

// A player opens with a buffer of megabytes and reads the first bytes: the rest must stay
// untouched.
TEST(ZeroedMemory, IsLeftToTheKernelUntilItIsUsed) {
  constexpr size_t kBytes = 1 << 20;
  const std::vector<unsigned char, util::ZeroedMemory<unsigned char>> memory(kBytes);
#ifndef FLUVIA_ZEROED_HEAP
  std::vector<unsigned char> resident(kBytes / static_cast<size_t>(sysconf(_SC_PAGESIZE)));
  void* const address = const_cast<unsigned char*>(memory.data());
  ASSERT_EQ(mincore(address, kBytes, resident.data()), 0);
  EXPECT_EQ(std::count_if(resident.begin(), resident.end(), [](int bits) { return bits & 1; }), 0);
#endif
  EXPECT_EQ(std::count(memory.begin(), memory.end(), 0), static_cast<long>(kBytes));
}

#ifndef FLUVIA_ZEROED_HEAP  // AddressSanitizer ends the program instead
TEST(ZeroedMemory, RefusesWhatThereIsNot) {
  util::ZeroedMemory<unsigned char> memory;
  // Fifteen sixteenths of all addresses.
  EXPECT_THROW(memory.allocate(SIZE_MAX / 65536 / 16 * 15 * 65536), std::bad_alloc);
}
#endif

TEST(ZeroedMemory, KeptAddressesHaveNoMemoryAndNoContents) {
  void* const first = util::mapZeroed(kBlock);
  ASSERT_NE(first, nullptr);
  memset(first, 'x', kBlock);
  util::unmapZeroed(first, kBlock);
  EXPECT_EQ(pagesOf(first, kBlock), 0);
  void* const again = util::mapZeroed(kBlock);
  EXPECT_EQ(again, first);
  EXPECT_TRUE(isZero(again, kBlock));
  util::unmapZeroed(again, kBlock);
}

TEST(ZeroedMemory, KeepsTheAddressesOfOneBufferOnly) {
  std::array<void*, 100> blocks = {};
  for (void*& block : blocks) block = util::mapZeroed(kBlock);
  for (void* block : blocks) util::unmapZeroed(block, kBlock);
  EXPECT_EQ(std::count_if(blocks.begin(), blocks.end(),
                          [](void* block) { return pagesOf(block, kBlock) == 0; }),
            64);
  EXPECT_EQ(std::count_if(blocks.begin(), blocks.end(),
                          [](void* block) { return pagesOf(block, kBlock) == -1; }),
            36);
}

TEST(ZeroedMemory, OtherSizesAreUnmapped) {
  void* const memory = util::mapZeroed(2 * kBlock);
  ASSERT_NE(memory, nullptr);
  util::unmapZeroed(memory, 2 * kBlock);
  EXPECT_EQ(pagesOf(memory, 2 * kBlock), -1);
}

TEST(ZeroedMemory, PagesLockedIntoMemoryAreUnmapped) {
  void* const memory = util::mapZeroed(kBlock);
  ASSERT_NE(memory, nullptr);
  // The sanitizers make mlock() do nothing.
  ASSERT_EQ(syscall(SYS_mlock, memory, kBlock), 0) << strerror(errno);
  util::unmapZeroed(memory, kBlock);
  EXPECT_EQ(pagesOf(memory, kBlock), -1);
}

TEST(ZeroedMemory, ThreadsShareWhatIsKept) {
  constexpr int kThreads = 4;
  std::array<int, kThreads> wrong = {};
  std::vector<std::thread> threads;
  for (int& mine : wrong) {
    threads.emplace_back([&mine] {
      for (int round = 0; round < 100; ++round) {
        std::array<void*, 8> blocks = {};
        for (void*& block : blocks) {
          block = util::mapZeroed(kBlock);
          if (!isZero(block, kBlock)) ++mine;
          memset(block, 'x', kBlock);
        }
        for (void* block : blocks) util::unmapZeroed(block, kBlock);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(wrong, (std::array<int, kThreads>{}));
}

}  // namespace
