#include "bench/common/Options.h"

#include "tests/support/CommandLine.h"

namespace bench {

namespace {

void addWorkload(support::CommandLine& line, Options* options) {
  line.option("--url", &options->url, "An absolute path, http:// or https://").required();
  line.option("--size", &options->size, "Bytes of the resource").required().notBelow(1);
  line.option("--workload", &options->workload,
              "sequential, random, backward, skip, trace, readers, first, silent, play")
      .withDefault();
  line.option("--mode", &options->mode, "A variant of this driver");
  line.option("--ca", &options->ca, "Certificates to verify the server with");
  line.option("--read", &options->read, "Bytes of one read").notBelow(1).withDefault();
  line.option("--count", &options->count, "Operations").notBelow(1).withDefault();
  line.option("--buffer", &options->buffer, "Bytes of the peer's buffer").notBelow(0).withDefault();
  line.option("--seed", &options->seed, "Seed of random offsets").withDefault();
}

void addDetails(support::CommandLine& line, Options* options) {
  line.option("--pause", &options->pause, "backward: milliseconds before each operation")
      .notBelow(0)
      .withDefault();
  line.option("--rate", &options->rate, "play: bits per second").notBelow(1).withDefault();
  line.option("--begin", &options->begin, "play: seconds before what counts")
      .notBelow(0)
      .withDefault();
  line.option("--seconds", &options->seconds, "play: seconds that count").notBelow(1).withDefault();
  line.option("--readers", &options->readers, "readers: how many").notBelow(1).withDefault();
  line.option("--step", &options->step, "readers: they meet every that many bytes; 0: they do not")
      .notBelow(0)
      .withDefault();
  line.flag("--distinct", &options->distinct, "readers: each has a URL of its own");
  line.option("--call", &options->call, "silent: close, abort or seek");
}

}  // namespace

Options parseOptions(int argc, char** argv) {
  Options options;
  support::CommandLine line("Runs one workload over a resource and prints its figures.");
  addWorkload(line, &options);
  addDetails(line, &options);
  line.parseOrExit(argc, argv);
  return options;
}

}  // namespace bench
