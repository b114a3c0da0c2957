// The bytes of local files of many sizes, read in many sizes.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <vector>

#include "api/fluviafs.h"
#include "tests/support/CapturedStderr.h"
#include "tests/support/Pattern.h"
#include "tests/support/TestFiles.h"
#include "tests/support/Watchdog.h"

namespace {

constexpr long long kMebibyte = 1 << 20;

// Reads a file from its beginning to the end. Returns the error, or an empty string.
std::string readThrough(const std::string& path, long long size, unsigned int readSize,
                        int bufferSize) {
  int handle = 0;
  if (x_fluvia_file_open_x(path.c_str(), &handle, bufferSize) != 0) return "open";
  std::vector<char> buffer(readSize);
  std::string wrong;
  long long total = 0;
  for (;;) {
    unsigned int got = 77;
    const int result = x_fluvia_file_read(handle, buffer.data(), readSize, &got);
    if (result == -13) {
      if (got != 0) wrong = "bytes at the end";
      break;
    }
    const long long wanted = std::min<long long>(readSize, size - total);
    if (result != 0 || got != wanted) {
      wrong = "result " + std::to_string(result) + " with " + std::to_string(got) + " at " +
              std::to_string(total);
      break;
    }
    if (support::firstDifference(static_cast<unsigned long long>(total), buffer.data(), got) >= 0) {
      wrong = "wrong bytes at " + std::to_string(total);
      break;
    }
    total += got;
  }
  if (wrong.empty() && total != size) wrong = "ended at " + std::to_string(total);
  if (wrong.empty() && x_fluvia_file_size(handle) != size) wrong = "size";
  x_fluvia_file_close(handle);
  return wrong;
}

class FileApiLocalContent : public testing::TestWithParam<long long> {
 protected:
  const support::CapturedStderr quiet{-100};
  support::TemporaryFolder folder;
};

TEST_P(FileApiLocalContent, IsRightInEveryReadSize) {
  const long long size = GetParam();
  const std::string path = folder.makePattern("a", size);
  for (const int bufferSize : {65536, 98304, 2097152}) {
    std::vector<unsigned int> readSizes = {1000, 4096, 32768, 1048576,
                                           static_cast<unsigned int>(std::max(1LL, size))};
    if (size <= support::scaled(262144)) readSizes.push_back(1);
    for (const unsigned int readSize : readSizes) {
      EXPECT_EQ(readThrough(path, size, readSize, bufferSize), "")
          << size << " bytes, read by " << readSize << " with a buffer of " << bufferSize;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(All, FileApiLocalContent,
                         testing::Values(0, 1, 100, 16384, 32768, 49152, 65536, 100000, 163840,
                                         262144, 2 * kMebibyte - 1, 2 * kMebibyte,
                                         2 * kMebibyte + 1));

TEST_F(FileApiLocalContent, FiftyMebibytes) {
  const std::string path = folder.makePattern("a", 50 * kMebibyte);
  EXPECT_EQ(readThrough(path, 50 * kMebibyte, 32768, 2097152), "");
  EXPECT_EQ(readThrough(path, 50 * kMebibyte, 50u << 20, 65536), "") << "in one call";
}

// Sparse files: zeros everywhere except at the marks.
class FileApiSparseContent : public testing::Test {
 protected:
  static std::string readAt(int handle, long long offset, unsigned int size) {
    long long now = 0;
    std::string bytes(size, 'x');
    unsigned int got = 0;
    if (x_fluvia_file_seek(handle, offset, &now) != 0) return "seek";
    const int result = x_fluvia_file_read(handle, &bytes[0], size, &got);
    if (result != 0) return "read " + std::to_string(result);
    bytes.resize(got);
    return bytes;
  }

  const support::CapturedStderr quiet{-100};
  support::TemporaryFolder folder;
};

TEST_F(FileApiSparseContent, ThreeGibibytesAreReadAndSoughtAbove2GiB) {
  const long long size = 3LL << 30;
  const std::string path = folder.makeSparse("a", size);
  FILE* file = fopen(path.c_str(), "r+b");
  ASSERT_NE(file, nullptr);
  ASSERT_EQ(fseeko(file, size - 5, SEEK_SET), 0);
  ASSERT_EQ(fputs("mark!", file), 1);
  fclose(file);
  int handle = 0;
  ASSERT_EQ(x_fluvia_file_open(path.c_str(), &handle), 0);
  EXPECT_EQ(x_fluvia_file_size(handle), size);
  EXPECT_EQ(readAt(handle, size - 5, 100), "mark!");
  EXPECT_EQ(readAt(handle, 2200000000LL, 10), std::string(10, '\0'));
  EXPECT_EQ(x_fluvia_file_offset(handle), 2200000010LL);
  x_fluvia_file_close(handle);
}

TEST_F(FileApiSparseContent, SizesAreModulo4GiB) {
  const std::string more = folder.makeSparse("more", (4LL << 30) + 1000);
  const std::string exactly = folder.makeSparse("exactly", 4LL << 30);
  int handle = 0;
  ASSERT_EQ(x_fluvia_file_open(more.c_str(), &handle), 0);
  EXPECT_EQ(x_fluvia_file_size(handle), 1000);
  EXPECT_EQ(readAt(handle, 900, 100), std::string(100, '\0'));
  x_fluvia_file_close(handle);
  ASSERT_EQ(x_fluvia_file_open(exactly.c_str(), &handle), 0);
  EXPECT_EQ(x_fluvia_file_size(handle), 0);
  EXPECT_EQ(readAt(handle, 0, 10), "seek");
  x_fluvia_file_close(handle);
}

// Many addresses that all map the same 16 MiB of memory: a device has no more.
class RepeatedMemory {
 public:
  static constexpr size_t kPiece = 16U << 20;

  explicit RepeatedMemory(size_t bytes) : size(bytes), file(memfd_create("repeated", MFD_CLOEXEC)) {
    void* place = mmap(nullptr, size, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (file < 0 || place == MAP_FAILED || ftruncate(file, kPiece) != 0) return;
    memory = static_cast<char*>(place);
    for (size_t at = 0; at < size; at += kPiece) {
      if (mmap(memory + at, kPiece, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_FIXED, file, 0) ==
          MAP_FAILED)
        return;
    }
    complete = true;
    memset(memory, 'x', kPiece);
  }
  ~RepeatedMemory() {
    if (memory != nullptr) munmap(memory, size);
    if (file >= 0) close(file);
  }
  RepeatedMemory(const RepeatedMemory&) = delete;
  RepeatedMemory& operator=(const RepeatedMemory&) = delete;

  const size_t size;
  const int file;
  char* memory = nullptr;
  bool complete = false;
};

// One call over 32768 blocks must not use stack for each.
TEST_F(FileApiSparseContent, OneGibibyteInOneCall) {
  const size_t size = 1U << 30;
  const std::string path = folder.makeSparse("a", size);
  const RepeatedMemory buffer(size);
  ASSERT_TRUE(buffer.complete) << strerror(errno);
  int handle = 0;
  ASSERT_EQ(x_fluvia_file_open(path.c_str(), &handle), 0);
  unsigned int got = 0;
  EXPECT_EQ(x_fluvia_file_read(handle, buffer.memory, size, &got), 0);
  EXPECT_EQ(got, size);
  EXPECT_EQ(std::count(buffer.memory, buffer.memory + RepeatedMemory::kPiece, '\0'),
            static_cast<long long>(RepeatedMemory::kPiece));
  x_fluvia_file_close(handle);
}

}  // namespace
