// The lines of the log, and the level: set by a call, or by a file below /data. For the file a test
// runs in a child with a /data of its own.
#include <gtest/gtest.h>

#include <climits>
#include <regex>
#include <string>
#include <vector>

#include "api/fluviafs.h"
#include "tests/support/CapturedStderr.h"
#include "tests/support/PrivateData.h"
#include "tests/support/TestFiles.h"
#include "util/Log.h"

namespace {

using support::CapturedStderr;

TEST(Log, LineHasPrefixTextAndEmptyLineAfterATextThatEndsInOne) {
  const CapturedStderr captured(0);
  x_fluvia_file_offset(0);
  EXPECT_TRUE(std::regex_match(
      captured.text(),
      std::regex("\\[FluviaFS\\]\\[00:\\d+:\\d{1,3}\\]\\[\\d+\\]\\[x_fluvia_file_offset\\]\\[\\d+"
                 "\\]-------INVALID_HANDLE\n\n")))
      << captured.text();
}

TEST(Log, LevelsAreStoredUnchecked) {
  const CapturedStderr captured(-4);
  for (const int level : {0, 3, 99, INT_MIN, INT_MAX}) {
    x_fluvia_file_set_log_level(level);
    EXPECT_EQ(x_fluvia_file_get_log_level(), level);
    EXPECT_EQ(c_fluvia_file_get_log_level(), level);
  }
  x_fluvia_file_set_log_level(INT_MIN);
  int handle = 0;
  x_fluvia_file_open("bad", &handle);
  EXPECT_EQ(captured.text(), "");
  x_fluvia_file_disable_log();
  EXPECT_EQ(x_fluvia_file_get_log_level(), -1);
  x_fluvia_file_open("bad", &handle);
  x_fluvia_file_offset(0);
  EXPECT_EQ(captured.messages(), std::vector<std::string>({"x_fluvia_file_open: url is invalid"}));
}

const char kLevelFile[] = "/data/vendor/3rd_rw/fluviafs/log_level";
const char kOtherLevelFile[] = "/data/fluviafs/log_level";

int openFile(const std::string& path) {
  int handle = 0;
  x_fluvia_file_open(path.c_str(), &handle);
  return handle;
}

struct LevelCase {
  const char* text;
  int level;
};

class LogLevel : public testing::TestWithParam<LevelCase> {};

TEST_P(LogLevel, SetsTheLevelAtTheFirstOpen) {
  support::TemporaryFolder folder;
  const std::string path = folder.makePattern("a", 10);
  const support::ChildResult child = support::inPrivateData([&] {
    support::writeData(kLevelFile, GetParam().text);
    openFile(path);
    support::endChild(x_fluvia_file_get_log_level() + 20);
  });
  EXPECT_EQ(child.exitCode, GetParam().level + 20) << child.error;
}

INSTANTIATE_TEST_SUITE_P(All, LogLevel,
                         testing::Values(LevelCase{"2\n", 2}, LevelCase{"-4", -4},
                                         LevelCase{"-10", -1}, LevelCase{"12", 12},
                                         LevelCase{"x", 0}, LevelCase{"-", 0}, LevelCase{"\n3", 3},
                                         LevelCase{" 7", 7}, LevelCase{"+2", 2},
                                         LevelCase{"", -4}));

TEST(LogLevel, OtherFolderDoesNotCount) {
  support::TemporaryFolder folder;
  const std::string path = folder.makePattern("a", 10);
  const support::ChildResult child = support::inPrivateData([&] {
    support::writeData(kOtherLevelFile, "3");
    openFile(path);
    support::endChild(x_fluvia_file_get_log_level() + 20);
  });
  EXPECT_EQ(child.exitCode, 16) << child.error;
}

TEST(LogLevel, ReplacesALevelSetBefore) {
  support::TemporaryFolder folder;
  const std::string path = folder.makePattern("a", 10);
  const support::ChildResult child = support::inPrivateData([&] {
    support::writeData(kLevelFile, "1");
    x_fluvia_file_set_log_level(-7);
    openFile(path);
    support::endChild(x_fluvia_file_get_log_level() + 20);
  });
  EXPECT_EQ(child.exitCode, 21) << child.error;
  EXPECT_NE(child.error.find("][detectLoglevel]["), std::string::npos);
  EXPECT_NE(child.error.find("Log level==1\n"), std::string::npos) << child.error;
}

TEST(LogLevel, IsReadOnlyOnceAndOnlyByAnOpenThatSucceeds) {
  support::TemporaryFolder folder;
  const std::string path = folder.makePattern("a", 10);
  const support::ChildResult child = support::inPrivateData([&] {
    support::writeData(kLevelFile, "-3");
    openFile(folder.file("missing"));
    if (x_fluvia_file_get_log_level() != -4) support::endChild(1);
    openFile(path);
    if (x_fluvia_file_get_log_level() != -3) support::endChild(2);
    x_fluvia_file_set_log_level(-5);
    openFile(path + "/../a");
    if (x_fluvia_file_get_log_level() != -5) support::endChild(3);
  });
  EXPECT_EQ(child.exitCode, 0) << child.error;
  EXPECT_EQ(child.error.find("Log level=="), std::string::npos) << "a level below -2 is silent";
}

}  // namespace
