// fluvia: the library on the command line.
#include <new>
#include <string>
#include <system_error>

#include "CommandLine.h"
#include "Commands.h"
#include "Source.h"

namespace {

// -v prints the calls (level 0), -vv tracing (1), -vvv everything (3).
int logLevel(int verbosity) {
  if (verbosity >= 3) {
    return 3;
  }
  return verbosity - 1;
}

int runCommand(const tools::CommandLine& line, tools::Screen& screen) {
  std::string error;
  if (!screen.redirect(line.log, &error)) {
    screen.fail(error);
    return tools::kExitOutput;
  }
  if (line.verbosity > 0) {
    tools::forceLogLevel(logLevel(line.verbosity));
  }
  tools::forceHttpOptions(&line.http, &screen);
  return line.command(screen);
}

}  // namespace

int main(int argc, char** argv) {
  tools::Screen screen;
  try {
    tools::CommandLine line;
    const int code = tools::parseCommandLine(argc, argv, &line);
    return line.command ? runCommand(line, screen) : code;
  } catch (const std::bad_alloc&) {
    screen.fail("no memory is left");
  } catch (const std::system_error& error) {
    screen.fail(std::string("no thread can be started: ") + error.what());
  }
  return tools::kExitSource;
}
