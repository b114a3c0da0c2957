// Random calls on several handles and paths, compared with plain arrays of the same bytes.
#include <gtest/gtest.h>

#include <atomic>
#include <random>
#include <thread>
#include <vector>

#include "api/fluviafs.h"
#include "tests/support/ApiModel.h"
#include "tests/support/TestFiles.h"
#include "tests/support/Watchdog.h"

namespace {

using support::Caller;
using support::Resource;

struct Model {
  int bufferSize;
  int threads;
  int steps;  // of each thread
  const char* name;
};

class ApiModel : public testing::TestWithParam<Model> {};

TEST_P(ApiModel, AgreesWithPlainArrays) {
  const Model& model = GetParam();
  const unsigned int seed = support::seedOr(std::random_device()());
  SCOPED_TRACE("FLUVIA_SEED=" + std::to_string(seed));
  printf("FLUVIA_SEED=%u\n", seed);
  fflush(stdout);
  x_fluvia_file_set_log_level(-5);
  support::TemporaryFolder folder;
  std::vector<Resource> resources;
  for (const long long size : {0, 1, 100, 16384, 32768, 65536, 100000, 300000, 1200000}) {
    const unsigned long long base = 1000000000ULL * resources.size();
    resources.push_back(
        {folder.makePattern(std::to_string(resources.size()), size, base), size, base});
  }
  std::vector<std::thread> threads;
  std::vector<std::string> wrong(static_cast<size_t>(model.threads));
  std::atomic<int> made{0};
  support::Watchdog watchdog(60, [&] { return std::to_string(made) + " calls made"; });
  for (int i = 0; i < model.threads; ++i) {
    threads.emplace_back([&, i] {
      Caller caller(resources, model.bufferSize, seed + static_cast<unsigned int>(i),
                    model.threads == 1);
      std::string& mine = wrong[static_cast<size_t>(i)];
      for (int step = 0; step < support::scaled(model.steps) && mine.empty(); ++step) {
        mine = caller.step();
        if (++made % 256 == 0) watchdog.at("calls");
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  for (const std::string& fault : wrong) EXPECT_EQ(fault, "");
}

std::string nameOf(const testing::TestParamInfo<Model>& parameter) { return parameter.param.name; }

INSTANTIATE_TEST_SUITE_P(All, ApiModel,
                         testing::Values(Model{65536, 1, 20000, "OneCallerTwoBlocks"},
                                         Model{98304, 1, 20000, "OneCallerThreeBlocks"},
                                         Model{2097152, 1, 20000, "OneCallerManyBlocks"},
                                         Model{65536, 4, 5000, "FourCallersTwoBlocks"},
                                         Model{98304, 4, 5000, "FourCallersThreeBlocks"},
                                         Model{2097152, 4, 5000, "FourCallersManyBlocks"}),
                         nameOf);

}  // namespace
