#ifndef FLUVIAFS_TESTS_SUPPORT_COMMANDLINE_H_
#define FLUVIAFS_TESTS_SUPPORT_COMMANDLINE_H_

#include <CLI/CLI.hpp>
#include <cstdlib>

namespace support {

// Reads the command line of a program. Ends the process with 0 after --help, and with the exit code
// wrong if it cannot be read.
inline void parseOrExit(CLI::App& app, int count, char** words, int wrong = 2) {
  try {
    app.parse(count, words);
  } catch (const CLI::ParseError& answer) {
    std::exit(app.exit(answer) == 0 ? 0 : wrong);
  }
}

}  // namespace support

#endif  // FLUVIAFS_TESTS_SUPPORT_COMMANDLINE_H_
