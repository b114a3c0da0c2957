#include "bench/common/Options.h"

#include <limits>

#include "tests/support/CommandLine.h"

namespace bench {

namespace {

const CLI::Range kPositive(1LL, std::numeric_limits<long long>::max(), "POSITIVE");
const CLI::Range kNatural(0LL, std::numeric_limits<long long>::max(), "NONNEGATIVE");

void addWorkload(CLI::App& app, Options* options) {
  app.add_option("--url", options->url, "An absolute path, http:// or https://")->required();
  app.add_option("--size", options->size, "Bytes of the resource")->required()->check(kPositive);
  app.add_option("--workload", options->workload,
                 "sequential, random, backward, skip, trace, readers, first, silent, play")
      ->capture_default_str();
  app.add_option("--mode", options->mode, "A variant of this driver");
  app.add_option("--ca", options->ca, "Certificates to verify the server with");
  app.add_option("--read", options->read, "Bytes of one read")
      ->check(kPositive)
      ->capture_default_str();
  app.add_option("--count", options->count, "Operations")->check(kPositive)->capture_default_str();
  app.add_option("--buffer", options->buffer, "Bytes of the peer's buffer")
      ->check(kNatural)
      ->capture_default_str();
  app.add_option("--seed", options->seed, "Seed of random offsets")->capture_default_str();
}

void addDetails(CLI::App& app, Options* options) {
  app.add_option("--pause", options->pause, "backward: milliseconds before each operation")
      ->check(kNatural)
      ->capture_default_str();
  app.add_option("--rate", options->rate, "play: bits per second")
      ->check(kPositive)
      ->capture_default_str();
  app.add_option("--begin", options->begin, "play: seconds before what counts")
      ->check(kNatural)
      ->capture_default_str();
  app.add_option("--seconds", options->seconds, "play: seconds that count")
      ->check(kPositive)
      ->capture_default_str();
  app.add_option("--readers", options->readers, "readers: how many")
      ->check(kPositive)
      ->capture_default_str();
  app.add_option("--step", options->step,
                 "readers: they meet every that many bytes; 0: they do not")
      ->check(kNatural)
      ->capture_default_str();
  app.add_flag("--distinct", options->distinct, "readers: each has a URL of its own");
  app.add_option("--call", options->call, "silent: close, abort or seek");
}

}  // namespace

Options parseOptions(int argc, char** argv) {
  Options options;
  CLI::App app("Runs one workload over a resource and prints its figures.");
  addWorkload(app, &options);
  addDetails(app, &options);
  support::parseOrExit(app, argc, argv);
  return options;
}

}  // namespace bench
