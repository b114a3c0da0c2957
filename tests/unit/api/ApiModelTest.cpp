// Random calls on several handles and paths, compared with plain arrays of the same bytes.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "api/fluviafs.h"
#include "tests/support/ApiModel.h"
#include "tests/support/TestFiles.h"
#include "tests/support/Watchdog.h"

namespace {

using support::CallersPlan;
using support::Resource;

class ApiModel : public testing::TestWithParam<CallersPlan> {};

TEST_P(ApiModel, AgreesWithPlainArrays) {
  const unsigned int seed = support::printedSeed();
  x_fluvia_file_set_log_level(-5);
  support::TemporaryFolder folder;
  std::vector<Resource> resources;
  for (const long long size : {0, 1, 100, 16384, 32768, 65536, 100000, 300000, 1200000}) {
    const unsigned long long base = 1000000000ULL * resources.size();
    resources.push_back(
        {folder.makePattern(std::to_string(resources.size()), size, base), size, base});
  }
  EXPECT_EQ(support::runCallers(GetParam(), resources, seed).wrong, "");
}

std::string nameOf(const testing::TestParamInfo<CallersPlan>& parameter) {
  return parameter.param.name;
}

INSTANTIATE_TEST_SUITE_P(All, ApiModel,
                         testing::Values(CallersPlan{65536, 1, 20000, "OneCallerTwoBlocks"},
                                         CallersPlan{98304, 1, 20000, "OneCallerThreeBlocks"},
                                         CallersPlan{2097152, 1, 20000, "OneCallerManyBlocks"},
                                         CallersPlan{65536, 4, 5000, "FourCallersTwoBlocks"},
                                         CallersPlan{98304, 4, 5000, "FourCallersThreeBlocks"},
                                         CallersPlan{2097152, 4, 5000, "FourCallersManyBlocks"}),
                         nameOf);

}  // namespace
