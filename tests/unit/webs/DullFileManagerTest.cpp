// The registry of shared files.
#include <gtest/gtest.h>

#include "tests/support/CapturedStderr.h"
#include "tests/support/Pattern.h"
#include "tests/support/TestFiles.h"
#include "tests/support/Watchdog.h"
#include "webs/DullFile.h"
#include "webs/DullFileManager.h"
#include "webs/FluviaFile.h"

namespace {

using support::CapturedStderr;
using webs::DullFile;
using webs::DullFileManager;
using webs::FluviaFile;
using Lines = std::vector<std::string>;

class DullFileManagerTest : public testing::Test {
 protected:
  DullFile* open(FluviaFile* handle, const std::string& path) {
    return DullFileManager::openDullFile(handle, path, 65536);
  }
  // A listed file without a handle: the reference was released, the list kept the file.
  DullFile* openUnreferenced(const std::string& path) {
    DullFile* file = open(&first, path);
    file->dereference(&first);
    return file;
  }

  const CapturedStderr quiet{-100};
  support::TemporaryFolder folder;
  support::Watchdog watchdog{60, [] { return std::string(); }};
  FluviaFile first{65536};
  FluviaFile second{65536};
};

TEST_F(DullFileManagerTest, OneUrlIsOneFileWithAReferenceForEachHandle) {
  const std::string path = folder.makePattern("a", 100);
  DullFile* file = open(&first, path);
  ASSERT_NE(file, nullptr);
  {
    const CapturedStderr log(1);
    EXPECT_EQ(open(&second, path), file);
    EXPECT_EQ(log.messages("openDullFile"),
              Lines({"openDullFile: have got a existing dull file because this file is seekable "
                     "and non-volatile"}));
  }
  EXPECT_EQ(file->referenceNumber(), 2);
  {
    const CapturedStderr log(1);
    DullFileManager::closeDullFile(&first, file);
    EXPECT_EQ(log.messages("closeDullFile"),
              Lines({"closeDullFile: begin closeDullFile", "closeDullFile: End closeDullFile"}));
  }
  EXPECT_EQ(file->referenceNumber(), 1);
  char byte = 0;
  unsigned int got = 0;
  {
    const util::Lock lock(*file);
    EXPECT_EQ(file->read(&byte, 1, 60, &got, &second), 0) << "the other handle goes on";
  }
  EXPECT_EQ(support::firstDifference(60, &byte, 1), -1);
  const CapturedStderr log(1);
  DullFileManager::closeDullFile(&second, file);
  EXPECT_EQ(log.messages("closeDullFile"),
            Lines({"closeDullFile: begin closeDullFile", "closeDullFile: begin to delete file",
                   "closeDullFile: End closeDullFile"}));
  EXPECT_TRUE(log.has("close: close End"));
}

TEST_F(DullFileManagerTest, VolatileFileIsSharedWithTheSameWords) {
  const std::string path = folder.makePattern("a", 100);
  DullFile* file = open(&first, path);
  file->volatileContent();
  const CapturedStderr log(1);
  EXPECT_EQ(open(&second, path), file);
  EXPECT_TRUE(
      log.has("openDullFile: have got a existing dull file because this file is seekable "
              "and non-volatile"));
  DullFileManager::closeDullFile(&first, file);
  DullFileManager::closeDullFile(&second, file);
}

TEST_F(DullFileManagerTest, NewFileLogsItsSteps) {
  const std::string path = folder.makePattern("a", 100);
  const CapturedStderr log(1);
  DullFile* file = open(&first, path);
  EXPECT_EQ(log.messages("openDullFile"),
            Lines({"openDullFile: begin to open Dull File with buffer:65536",
                   "openDullFile: open new file for:" + path}));
  DullFileManager::closeDullFile(&first, file);
}

TEST_F(DullFileManagerTest, NamesThatDifferAreTwoFiles) {
  DullFile* lower = open(&first, folder.makePattern("a", 100));
  DullFile* upper = open(&second, folder.makePattern("A", 100));
  EXPECT_NE(lower, upper);
  EXPECT_EQ(upper->referenceNumber(), 1);
  DullFileManager::closeDullFile(&first, lower);
  DullFileManager::closeDullFile(&second, upper);
}

TEST_F(DullFileManagerTest, NoHandleIsNoFile) {
  EXPECT_EQ(open(nullptr, folder.makePattern("a", 100)), nullptr);
}

TEST_F(DullFileManagerTest, FileThatDoesNotOpenIsNotListed) {
  const std::string path = folder.file("a");
  {
    const CapturedStderr log(1);
    EXPECT_EQ(open(&first, path), nullptr);
    EXPECT_EQ(log.messages("openDullFile"),
              Lines({"openDullFile: begin to open Dull File with buffer:65536",
                     "openDullFile: open new file for:" + path, "openDullFile: open file failed"}));
  }
  folder.makePattern("a", 100);
  const CapturedStderr log(1);
  DullFile* file = open(&first, path);
  EXPECT_NE(file, nullptr);
  EXPECT_TRUE(log.has("openDullFile: open new file for:" + path)) << "not the failed one";
  DullFileManager::closeDullFile(&first, file);
}

TEST_F(DullFileManagerTest, FileThatIsNotListedIsReported) {
  DullFile unlisted(65536);
  const CapturedStderr log(1);
  DullFileManager::closeDullFile(&first, &unlisted);
  DullFileManager::closeDullFile(&first, nullptr);
  EXPECT_EQ(log.count("closeDullFile: error, the file hasn't been opened or it has been closed"),
            2);
  EXPECT_EQ(log.count("closeDullFile: End closeDullFile"), 2);
}

TEST_F(DullFileManagerTest, NextNewFileSweepsThoseWithoutHandle) {
  openUnreferenced(folder.makePattern("a", 100));
  const CapturedStderr log(1);
  DullFile* other = open(&first, folder.makePattern("b", 100));
  EXPECT_EQ(log.messages("openDullFile"),
            Lines({"openDullFile: begin to open Dull File with buffer:65536",
                   "openDullFile: begin to delete file",
                   "openDullFile: open new file for:" + folder.file("b")}));
  EXPECT_TRUE(log.has("close: close End"));
  DullFileManager::closeDullFile(&first, other);
}

TEST_F(DullFileManagerTest, FileWithoutHandleIsSharedWhileItIsListed) {
  DullFile* file = openUnreferenced(folder.makePattern("a", 100));
  EXPECT_EQ(open(&second, folder.file("a")), file);
  EXPECT_EQ(file->referenceNumber(), 1);
  DullFileManager::closeDullFile(&second, file);
}

TEST_F(DullFileManagerTest, CleanupDestroysWhatHasNoHandleAndNamesTheRest) {
  openUnreferenced(folder.makePattern("a", 100));
  DullFile* kept = open(&second, folder.makePattern("b", 100));
  openUnreferenced(folder.makePattern("c", 100));  // removes the first
  const CapturedStderr log(1);
  second.cleanupCache();
  EXPECT_EQ(log.messages("cleanup"), Lines({"cleanup: Error there's the file:" + folder.file("b") +
                                            " hasn't been closed before cleanup"}));
  EXPECT_EQ(log.count("close: close End"), 1);
  EXPECT_EQ(kept->referenceNumber(), 1);
  DullFileManager::closeDullFile(&second, kept);
  DullFileManager::cleanup();
}

TEST_F(DullFileManagerTest, DumpAsksTheFirstListedFileAtLevelThree) {
  DullFile* file = open(&first, folder.makePattern("a", 100));
  {
    const CapturedStderr log(2);
    DullFileManager::dumpDebugInfo();
    EXPECT_EQ(log.ownMessages(), Lines());
  }
  DullFile* later = open(&second, folder.makePattern("b", 100));
  EXPECT_EQ(later->getSize(), 100);
  {
    const CapturedStderr log(3);
    DullFileManager::dumpDebugInfo();
    EXPECT_EQ(log.count("dumpBuffer: begin to dump buffer"), 1);
    EXPECT_TRUE(log.has("dumpBuffer: s  0:         0 ~         0")) << "the one without data";
  }
  DullFileManager::closeDullFile(&first, file);
  DullFileManager::closeDullFile(&second, later);
}

}  // namespace
