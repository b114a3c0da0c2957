// Nothing: the cost of a workload that only sleeps and counts.
#include "bench/common/Source.h"

namespace {

class IdleSource : public bench::Source {
 public:
  bool open(const bench::Options&, const std::string&) override { return true; }
  long long read(char*, size_t size) override { return static_cast<long long>(size); }
  bool seek(long long) override { return true; }
  void abort() override {}
  void close() override {}
  bool givesBytes() const override { return false; }
};

}  // namespace

int main(int argc, char** argv) {
  return bench::runDriver(argc, argv, [](const bench::Options&) {
    return std::unique_ptr<bench::Source>(new IdleSource);
  });
}
