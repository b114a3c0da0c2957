#include "CommandLine.h"

#include <CLI/CLI.hpp>
#include <memory>

#include "Commands.h"
#include "HttpCommandLine.h"

namespace tools {
namespace {

using Command = std::function<int(const Screen&)>;

void addLogOptions(CLI::App& app, CommandLine* line) {
  CLI::Option* file = app.add_option("--log", line->log, "Write the library's log lines to FILE")
                          ->type_name("FILE");
  app.add_flag("-v,--verbose", line->verbosity, "Log more: -v calls, -vv tracing, -vvv everything")
      ->needs(file);
}

// For a number of bytes: K, M and G are understood.
CLI::Option* inBytes(CLI::Option* option) {
  return option->transform(CLI::AsSizeValue(false))->type_name("N");
}

void addCat(CLI::App& app, Command* chosen) {
  auto options = std::make_shared<CatOptions>();
  CLI::App* cat = app.add_subcommand("cat", "Write SRC to standard output or a file");
  cat->add_option("SRC", options->source, "Path or URL")->required();
  cat->add_option("-o,--output", options->output, "Write to FILE")->type_name("FILE");
  inBytes(cat->add_option("--offset", options->offset, "Begin at byte N (K, M, G are understood)"))
      ->check(CLI::NonNegativeNumber);
  inBytes(cat->add_option("--length", options->length, "Write at most N bytes"))
      ->check(CLI::NonNegativeNumber);
  inBytes(cat->add_option("--read-size", options->readSize, "Bytes of a read; default 64K"))
      ->check(CLI::Range(1, 1 << 30));
  inBytes(cat->add_option("--buffer", options->buffer, "Bytes of buffer; default 2M"))
      ->check(CLI::Range(1, 0x7FFFFFFF));
  cat->add_flag("--async", options->async, "Read with asynchronous requests");
  cat->add_option("--reopen", options->reopen,
                  "Bear an outage of the server N seconds, 0 for not at all; default 60")
      ->check(CLI::Range(0, 1000000))
      ->type_name("N");
  cat->add_option("--report", options->report,
                  "At the end, write size, rate and SHA-256 to FILE (-: standard error)")
      ->type_name("FILE");
  cat->add_option("--trace", options->trace,
                  "Log everything, and draw the run as an HTML page into FILE")
      ->type_name("FILE");
  cat->callback([options, chosen] {
    *chosen = [options](const Screen& screen) { return runCat(*options, screen); };
  });
}

void addInfo(CLI::App& app, Command* chosen) {
  auto options = std::make_shared<InfoOptions>();
  CLI::App* info = app.add_subcommand("info", "Tell what is known about SRC");
  info->add_option("SRC", options->source, "Path or URL")->required();
  info->add_flag("--json", options->json, "As one JSON object");
  info->callback([options, chosen] {
    *chosen = [options](const Screen& screen) { return runInfo(*options, screen); };
  });
}

void addCheck(CLI::App& app, Command* chosen) {
  auto options = std::make_shared<CheckOptions>();
  CLI::App* check =
      app.add_subcommand("check", "Seek and read at random and compare with a plain read of SRC");
  check->add_option("SRC", options->source, "Path or URL")->required();
  check->add_option("--count", options->count, "Seeks, each with a read; default 1000")
      ->check(CLI::Range(1, 1000000000))
      ->type_name("N");
  inBytes(check->add_option("--read-size", options->readSize, "Most bytes of a read; default 256K"))
      ->check(CLI::Range(1, 1 << 30));
  inBytes(check->add_option("--buffer", options->buffer, "Bytes of buffer; default 2M"))
      ->check(CLI::Range(1, 0x7FFFFFFF));
  CLI::Option* seed =
      check->add_option("--seed", options->seed, "Repeat the run that printed this seed")
          ->type_name("N");
  check->callback([options, chosen, seed] {
    options->seeded = seed->count() != 0;
    *chosen = [options](const Screen& screen) { return runCheck(*options, screen); };
  });
}

void addTree(CLI::App& app, Command* chosen) {
  auto options = std::make_shared<TreeOptions>();
  CLI::App* tree = app.add_subcommand("tree", "Show the XML or JSON body at SRC as a tree");
  tree->add_option("SRC", options->source, "Path or URL")->required();
  CLI::Option* xml =
      tree->add_flag("--xml", options->xml, "Write the tree back as XML; SRC must be XML");
  tree->add_flag("--json", options->json, "Write the tree back as JSON; SRC must be JSON")
      ->excludes(xml);
  inBytes(
      tree->add_option("--limit", options->limit,
                       "Give up when the tree takes more than N bytes, 0 for never; default 256M"))
      ->check(CLI::NonNegativeNumber);
  tree->footer(
      "A body whose first character is '<' is read as XML, any other as JSON. --xml and --json\n"
      "escape nothing: a '<' or a quote in a value is written as it is. Without them, control\n"
      "characters, backslashes and quotes are shown with a backslash.");
  tree->callback([options, chosen] {
    *chosen = [options](const Screen& screen) { return runTree(*options, screen); };
  });
}

void addTrace(CLI::App& app, Command* chosen) {
  auto options = std::make_shared<TraceOptions>();
  CLI::App* trace = app.add_subcommand("trace", "Draw a log of the library as an HTML page");
  trace->add_option("LOG", options->log, "Log file; - for standard input")->required();
  trace->add_option("-o,--output", options->output, "Write to FILE")->type_name("FILE");
  trace->callback([options, chosen] {
    *chosen = [options](const Screen& screen) { return runTrace(*options, screen); };
  });
}

}  // namespace

int parseCommandLine(int count, char** words, CommandLine* line) {
  CLI::App app("Streams local files and HTTP resources through libfluviafs.", "fluvia");
  app.set_version_flag("--version", "fluvia " FLUVIA_VERSION);
  app.require_subcommand(1);
  app.fallthrough();
  app.footer(
      "SRC is a path or an http:// or https:// URL. Exit codes: 0 success, 1 the source cannot be\n"
      "read, 2 wrong usage, 3 check found a difference, 4 the output cannot be written.");
  addLogOptions(app, line);
  addHttpOptions(app, &line->http);
  addCat(app, &line->command);
  addInfo(app, &line->command);
  addCheck(app, &line->command);
  addTree(app, &line->command);
  addTrace(app, &line->command);
  try {
    app.parse(count, words);
  } catch (const CLI::ParseError& answer) {
    line->command = nullptr;
    return exitAfterParsing(app, answer, count, words) == 0 ? kExitOk : kExitUsage;
  }
  return kExitOk;
}

}  // namespace tools
