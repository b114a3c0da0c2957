#ifndef FLUVIAFS_TOOLS_COMMANDS_H_
#define FLUVIAFS_TOOLS_COMMANDS_H_

#include <CLI/CLI.hpp>
#include <functional>

#include "Screen.h"

namespace tools {

// The exit codes of fluvia.
enum ExitCode : int {
  kExitOk = 0,
  kExitSource = 1,   // the source cannot be opened or read
  kExitUsage = 2,    // the command line is wrong
  kExitDiffers = 3,  // check found bytes that differ
  kExitOutput = 4,   // the output cannot be written
};

// A subcommand: called after the command line has been parsed; returns the exit code.
using Command = std::function<int(const Screen&)>;

// Each adds its subcommand with its options to app, and sets *chosen if that subcommand is
// selected.
void addCat(CLI::App& app, Command* chosen);
void addInfo(CLI::App& app, Command* chosen);
void addCheck(CLI::App& app, Command* chosen);

}  // namespace tools

#endif  // FLUVIAFS_TOOLS_COMMANDS_H_
