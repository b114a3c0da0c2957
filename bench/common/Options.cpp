#include "bench/common/Options.h"

#include <getopt.h>

#include <cstdio>
#include <cstdlib>

namespace bench {

namespace {

const char kUsage[] =
    "usage: %s --url URL --size BYTES [options]\n"
    "  --workload NAME  sequential, random, backward, skip, trace, readers, first, silent,\n"
    "                   play\n"
    "  --mode NAME      a variant of this driver\n"
    "  --ca FILE        certificates to verify the server with\n"
    "  --read BYTES     of one read (32768)\n"
    "  --count N        operations (1000)\n"
    "  --pause MS       before each operation of backward (0)\n"
    "  --buffer BYTES   of the peer's buffer (2097152)\n"
    "  --rate BITS      of the workload play, per second (25000000)\n"
    "  --begin S        before what play counts (5)\n"
    "  --seconds S      what play counts (60)\n"
    "  --readers N      of the workload readers (1)\n"
    "  --step BYTES     the readers meet every that many bytes (0: never)\n"
    "  --distinct       each reader has a URL of its own\n"
    "  --call NAME      of the workload silent: close, abort, seek\n"
    "  --seed N         of random offsets (1)\n";

const struct option kOptions[] = {{"workload", required_argument, nullptr, 'w'},
                                  {"mode", required_argument, nullptr, 'm'},
                                  {"url", required_argument, nullptr, 'u'},
                                  {"ca", required_argument, nullptr, 'a'},
                                  {"size", required_argument, nullptr, 's'},
                                  {"read", required_argument, nullptr, 'r'},
                                  {"count", required_argument, nullptr, 'c'},
                                  {"pause", required_argument, nullptr, 'p'},
                                  {"buffer", required_argument, nullptr, 'b'},
                                  {"readers", required_argument, nullptr, 'n'},
                                  {"step", required_argument, nullptr, 't'},
                                  {"distinct", no_argument, nullptr, 'd'},
                                  {"call", required_argument, nullptr, 'l'},
                                  {"seed", required_argument, nullptr, 'e'},
                                  {"rate", required_argument, nullptr, 'R'},
                                  {"begin", required_argument, nullptr, 'B'},
                                  {"seconds", required_argument, nullptr, 'S'},
                                  {"help", no_argument, nullptr, 'h'},
                                  {nullptr, 0, nullptr, 0}};

bool setText(Options* options, int name) {
  switch (name) {
    case 'w':
      options->workload = optarg;
      return true;
    case 'm':
      options->mode = optarg;
      return true;
    case 'u':
      options->url = optarg;
      return true;
    case 'a':
      options->ca = optarg;
      return true;
    case 'l':
      options->call = optarg;
      return true;
    case 'd':
      options->distinct = true;
      return true;
    default:
      return false;
  }
}

bool setNumber(Options* options, int name) {
  if (optarg == nullptr) return false;
  char* end = nullptr;
  const long long value = strtoll(optarg, &end, 10);
  if (end == optarg || *end != '\0' || value < 0) return false;
  switch (name) {
    case 's':
      options->size = value;
      return true;
    case 't':
      options->step = value;
      return true;
    case 'r':
      options->read = static_cast<int>(value);
      return value > 0;
    case 'c':
      options->count = static_cast<int>(value);
      return value > 0;
    case 'p':
      options->pause = static_cast<int>(value);
      return true;
    case 'b':
      options->buffer = static_cast<int>(value);
      return true;
    case 'R':
      options->rate = value;
      return value > 0;
    case 'B':
      options->begin = static_cast<int>(value);
      return true;
    case 'S':
      options->seconds = static_cast<int>(value);
      return value > 0;
    case 'n':
      options->readers = static_cast<int>(value);
      return value > 0;
    case 'e':
      options->seed = static_cast<unsigned int>(value);
      return true;
    default:
      return false;
  }
}

}  // namespace

Options parseOptions(int argc, char** argv) {
  Options options;
  int name = 0;
  while ((name = getopt_long(argc, argv, "", kOptions, nullptr)) != -1) {
    if (name == 'h') {
      printf(kUsage, argv[0]);
      exit(0);
    }
    if (!setText(&options, name) && !setNumber(&options, name)) {
      fprintf(stderr, kUsage, argv[0]);
      exit(2);
    }
  }
  if (options.url.empty() || options.size <= 0 || optind != argc) {
    fprintf(stderr, kUsage, argv[0]);
    exit(2);
  }
  return options;
}

}  // namespace bench
