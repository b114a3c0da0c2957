// fluvia: the library on the command line.
#include <string>

#include "Commands.h"
#include "HttpOptions.h"
#include "Screen.h"
#include "Source.h"
#include "TraceCommand.h"
#include "TreeCommand.h"

namespace {

struct LogOptions {
  std::string file;
  int verbosity = 0;
};

void addLogOptions(CLI::App& app, LogOptions* options) {
  CLI::Option* file =
      app.add_option("--log", options->file, "Write the library's log lines to FILE")
          ->type_name("FILE");
  app.add_flag("-v,--verbose", options->verbosity,
               "Log more: -v calls, -vv tracing, -vvv everything")
      ->needs(file);
}

// -v prints the calls (level 0), -vv tracing (1), -vvv everything (3).
int logLevel(int verbosity) {
  if (verbosity >= 3) {
    return 3;
  }
  return verbosity - 1;
}

int runCommand(const LogOptions& log, const tools::HttpOptions& http,
               const tools::Command& command) {
  tools::Screen screen;
  std::string error;
  if (!screen.redirect(log.file, &error)) {
    screen.fail(error);
    return tools::kExitOutput;
  }
  if (log.verbosity > 0) {
    tools::forceLogLevel(logLevel(log.verbosity));
  }
  tools::forceHttpOptions(&http, &screen);
  return command(screen);
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app("Streams local files and HTTP resources through libfluviafs.", "fluvia");
  app.set_version_flag("--version", "fluvia " FLUVIA_VERSION);
  app.require_subcommand(1);
  app.fallthrough();
  app.footer(
      "SRC is a path or an http:// or https:// URL. Exit codes: 0 success, 1 the source cannot be\n"
      "read, 2 wrong usage, 3 check found a difference, 4 the output cannot be written.");
  LogOptions log;
  addLogOptions(app, &log);
  tools::HttpOptions http;
  tools::addHttpOptions(app, &http);
  tools::Command command;
  tools::addCat(app, &command);
  tools::addInfo(app, &command);
  tools::addCheck(app, &command);
  tools::addTree(app, &command);
  tools::addTrace(app, &command);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& answer) {
    return tools::exitAfterParsing(app, answer) == 0 ? tools::kExitOk : tools::kExitUsage;
  }
  return runCommand(log, http, command);
}
