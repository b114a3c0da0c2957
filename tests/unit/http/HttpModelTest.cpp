// Random calls on HTTP resources whose connections break, compared with plain arrays.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "tests/support/ApiModel.h"
#include "tests/support/Behaviours.h"
#include "tests/support/FaultServer.h"
#include "tests/support/QueueProbe.h"
#include "tests/support/SilentStderr.h"
#include "tests/support/Watchdog.h"

namespace {

using support::CallersPlan;
using support::FaultServer;
using support::Resource;

class HttpModel : public ::testing::TestWithParam<CallersPlan> {};

TEST_P(HttpModel, AgreesWithPlainArrays) {
  const unsigned int seed = support::printedSeed();
  support::silenceStderr();
  // No reader may need the clock that ends the pause of a transfer without room.
  util::BufferQueueProbe::setLongestPause(3600000);
  FaultServer server;
  std::vector<Resource> resources;
  for (const long long size : {1, 100, 32768, 65536, 100000, 300000, 1200000}) {
    const std::string path = "/" + std::to_string(size);
    server.on(path, support::breakOften(size, seed, 2, false));
    resources.push_back({server.url(path), size, 0});
  }
  EXPECT_EQ(support::runCallers(GetParam(), resources, seed), "");
  const int calls = support::scaled(GetParam().calls);
  EXPECT_GT(server.connectionCount(), calls / 20) << "hardly anything broke";
  util::BufferQueueProbe::resetLongestPause();
  printf("%d calls, %d connections\n", calls * GetParam().threads, server.connectionCount());
}

std::string nameOf(const ::testing::TestParamInfo<CallersPlan>& parameter) {
  return parameter.param.name;
}

INSTANTIATE_TEST_SUITE_P(All, HttpModel,
                         ::testing::Values(CallersPlan{65536, 1, 2000, "OneCallerTwoBlocks"},
                                           CallersPlan{98304, 1, 2000, "OneCallerThreeBlocks"},
                                           CallersPlan{262144, 1, 2000, "OneCallerEightBlocks"},
                                           CallersPlan{2097152, 1, 2000, "OneCallerManyBlocks"},
                                           CallersPlan{65536, 4, 400, "FourCallersTwoBlocks"},
                                           CallersPlan{98304, 4, 300, "FourCallersThreeBlocks"},
                                           CallersPlan{262144, 4, 300, "FourCallersEightBlocks"},
                                           CallersPlan{2097152, 4, 300, "FourCallersManyBlocks"}),
                         nameOf);

}  // namespace
