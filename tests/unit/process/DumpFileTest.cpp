// The read dump, which a path file below /data enables. Each test runs in a child with a /data of
// its own.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "api/fluviafs.h"
#include "tests/support/Pattern.h"
#include "tests/support/PrivateData.h"
#include "tests/support/TestFiles.h"
#include "util/DumpFile.h"

namespace {

const char kPathFile[] = "/data/vendor/3rd_rw/fluviafs/fluviafs_usb_path.txt";
const char kOtherPathFile[] = "/data/fluviafs/fluviafs_usb_path.txt";

int openFile(const std::string& path) {
  int handle = 0;
  x_fluvia_file_open(path.c_str(), &handle);
  return handle;
}

// Reads size bytes of path. Returns the contents of the dump file, or a text that says there is
// none.
std::string dumped(const std::string& path, const std::string& dump, unsigned int size) {
  std::vector<char> buffer(size);
  unsigned int got = 0;
  const int handle = openFile(path);
  x_fluvia_file_read(handle, buffer.data(), size, &got);
  std::ifstream file(dump, std::ios::binary);
  if (!file) return "no file " + dump;
  return std::string(std::istreambuf_iterator<char>(file), {});
}

TEST(DumpFile, FirstReadIsCopiedToTheNamedFolder) {
  support::TemporaryFolder folder;
  const std::string path = folder.makePattern("a", 100000);
  const support::ChildResult child = support::inPrivateData([&] {
    support::writeData(kPathFile, "/data/usb");
    support::writeData("/data/usb/keep", "");
    umask(022);
    if (dumped(path, "/data/usb/QV_id1_0_32768.dat", 32768) != support::pattern(0, 32768))
      support::endChild(1);
    struct stat status;
    if (stat("/data/usb/QV_id1_0_32768.dat", &status) != 0 || (status.st_mode & 0777) != 0755) {
      support::endChild(2);
    }
  });
  EXPECT_EQ(child.exitCode, 0) << child.error;
  EXPECT_NE(child.error.find("-------read fluviafs_usb_path.txt success\n"), std::string::npos);
  EXPECT_NE(child.error.find("-------FluviaFile readed=32768, id:1\n"), std::string::npos);
}

TEST(DumpFile, OtherFolderNamesThePathWhenTheFirstDoesNot) {
  support::TemporaryFolder folder;
  const std::string path = folder.makePattern("a", 100);
  const support::ChildResult child = support::inPrivateData([&] {
    support::writeData(kOtherPathFile, "/data/usb");
    support::writeData("/data/usb/keep", "");
    if (dumped(path, "/data/usb/QV_id1_0_100.dat", 500) != support::pattern(0, 100))
      support::endChild(1);
  });
  EXPECT_EQ(child.exitCode, 0) << child.error;
}

TEST(DumpFile, LineEndOfThePathFileStaysInTheName) {
  support::TemporaryFolder folder;
  const std::string path = folder.makePattern("a", 100);
  const support::ChildResult child = support::inPrivateData([&] {
    support::writeData(kPathFile, "/data/usb\n");
    support::writeData("/data/usb/keep", "");
    dumped(path, "", 100);
  });
  EXPECT_EQ(child.exitCode, 0) << child.error;
  EXPECT_NE(child.error.find("-------open /data/usb\n/QV_id1_0_100.dat fail\n"), std::string::npos)
      << child.error;
}

TEST(DumpFile, EmptyPathFileSwitchesNothingOn) {
  support::TemporaryFolder folder;
  const std::string path = folder.makePattern("a", 100);
  const support::ChildResult child = support::inPrivateData([&] {
    support::writeData(kPathFile, "");
    support::writeData(kOtherPathFile, "/data");
    if (dumped(path, "/data/QV_id1_0_100.dat", 100).find("no file") != 0) support::endChild(1);
  });
  EXPECT_EQ(child.exitCode, 0) << child.error;
  EXPECT_EQ(child.error.find("fluviafs_usb_path.txt"), std::string::npos);
}

TEST(DumpFile, PathOfTwoHundredBytesIsCut) {
  support::TemporaryFolder folder;
  const std::string path = folder.makePattern("a", 100);
  const std::string longPath = "/data/no/" + std::string(300, 'p');
  const support::ChildResult child = support::inPrivateData([&] {
    support::writeData(kPathFile, longPath);
    dumped(path, "", 100);
  });
  EXPECT_EQ(child.exitCode, 0) << child.error;
  EXPECT_NE(child.error.find("-------open " + longPath.substr(0, 199) + " fail\n"),
            std::string::npos)
      << child.error;
}

TEST(DumpFile, ProbeAndAsynchronousReadsCountToo) {
  support::TemporaryFolder folder;
  const std::string path = folder.makePattern("a", 100);
  const support::ChildResult child = support::inPrivateData([&] {
    support::writeData(kPathFile, "/data/usb");
    support::writeData("/data/usb/keep", "");
    const int handle = openFile(path);
    x_fluvia_file_size(handle);
    support::Completions done;
    std::vector<char> buffer(50);
    int id = 0;
    x_fluvia_file_read_async(handle, buffer.data(), 50, &support::Completions::completed, &done,
                             &id);
    if (!done.waitFor(1)) support::endChild(1);
    if (access("/data/usb/QV_id1_0_1.dat", F_OK) != 0) support::endChild(2);
    if (access("/data/usb/QV_id2_0_50.dat", F_OK) != 0) support::endChild(3);
  });
  EXPECT_EQ(child.exitCode, 0) << child.error;
}

// A dump object at the end of its memory: a read behind the path is a read of foreign memory.
TEST(DumpFile, PathOfTwoHundredBytesIsNotReadPastItsEnd) {
  const support::ChildResult child = support::inPrivateData([] {
    support::writeData(kPathFile, "/data/" + std::string(294, 'd'));
    const std::unique_ptr<util::DumpFile> dump(new util::DumpFile);
    dump->read_usb_path();
    unsigned char byte = 0;
    dump->read_to_file(0, &byte, 1);
  });
  EXPECT_EQ(child.exitCode, 0) << child.error;
  EXPECT_NE(child.error.find("-------FluviaFile readed=1, id:1\n"), std::string::npos)
      << child.error;
}

TEST(DumpFile, SharedSecondHandleReadsNoPathAgain) {
  support::TemporaryFolder folder;
  const std::string path = folder.makePattern("a", 100);
  const support::ChildResult child = support::inPrivateData([&] {
    support::writeData(kPathFile, "/data/usb");
    openFile(path);
    openFile(path);
    openFile(folder.file("missing"));
  });
  EXPECT_EQ(child.exitCode, 0) << child.error;
  size_t count = 0;
  for (size_t at = 0; (at = child.error.find("txt success", at)) != std::string::npos; ++at) {
    ++count;
  }
  EXPECT_EQ(count, 2u) << "one for each shared file made, also for an open that fails";
}

}  // namespace
