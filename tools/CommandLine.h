#ifndef FLUVIAFS_TOOLS_COMMANDLINE_H_
#define FLUVIAFS_TOOLS_COMMANDLINE_H_

#include <functional>
#include <string>

#include "HttpOptions.h"
#include "Screen.h"

namespace tools {

// What the command line of fluvia says.
struct CommandLine {
  std::string log;  // file for the library's log lines; empty for none
  int verbosity = 0;
  HttpOptions http;
  std::function<int(const Screen&)> command;  // runs the subcommand; returns the exit code
};

// Reads the command line. Leaves line->command empty after --help, --version or an error, which it
// prints, and returns the exit code of the program then.
int parseCommandLine(int count, char** words, CommandLine* line);

}  // namespace tools

#endif  // FLUVIAFS_TOOLS_COMMANDLINE_H_
