#ifndef FLUVIAFS_TOOLS_COMMANDS_H_
#define FLUVIAFS_TOOLS_COMMANDS_H_

#include <string>

#include "Screen.h"
#include "Source.h"

namespace tools {

// The exit codes of fluvia.
enum ExitCode : int {
  kExitOk = 0,
  kExitSource = 1,   // the source cannot be opened or read, or no memory is left
  kExitUsage = 2,    // the command line is wrong
  kExitDiffers = 3,  // check found bytes that differ
  kExitOutput = 4,   // the output cannot be written
};

// The subcommands. source is a path or URL; a buffer of 0 bytes is the library's own size. Each
// returns the exit code.

struct CatOptions {
  std::string source;
  std::string output;
  long long offset = 0;
  long long length = -1;  // -1: to the end
  unsigned int readSize = 65536;
  int buffer = 0;
  bool async = false;
  int reopen = FLUVIA_OUTAGE_SECONDS;  // of an outage; 0: not at all
  std::string report;                  // file, "-" for standard error, empty for none
  std::string trace;                   // file of a page about the run, empty for none
};

// Writes the source to standard output or a file.
int runCat(const CatOptions& options, const Screen& screen);

struct InfoOptions {
  std::string source;
  bool json = false;
};

// Shows what is known about the source.
int runInfo(const InfoOptions& options, const Screen& screen);

struct CheckOptions {
  std::string source;
  unsigned int count = 1000;
  unsigned int readSize = 262144;
  int buffer = 0;
  unsigned int seed = 0;
  bool seeded = false;
};

// Seeks and reads at random and compares with a plain read of the source.
int runCheck(const CheckOptions& options, const Screen& screen);

struct TreeOptions {
  std::string source;
  bool xml = false;
  bool json = false;
  long long limit = 256LL << 20;  // bytes of the tree; room for a million small nodes
};

// Shows an XML or JSON body as the library's readers parse it.
int runTree(const TreeOptions& options, const Screen& screen);

struct TraceOptions {
  std::string log;
  std::string output;
};

// Shows a log of the library as an HTML page.
int runTrace(const TraceOptions& options, const Screen& screen);

}  // namespace tools

#endif  // FLUVIAFS_TOOLS_COMMANDS_H_
