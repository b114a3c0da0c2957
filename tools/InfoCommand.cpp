#include <fluviafs.h>

#include <cstdio>
#include <memory>
#include <string>

#include "Commands.h"
#include "Source.h"
#include "Text.h"

namespace tools {
namespace {

struct InfoOptions {
  std::string source;
  bool json = false;
};

struct Facts {
  std::string name;
  long long size = -1;  // -1: nobody knows
  bool seekable = false;
  int capacity = 0;
  int buffered = 0;
};

std::string asJson(const Facts& facts) {
  return "{\"source\": " + jsonString(facts.name) +
         ", \"size\": " + (facts.size < 0 ? "null" : std::to_string(facts.size)) +
         ", \"seekable\": " + (facts.seekable ? "true" : "false") +
         ", \"bufferSize\": " + std::to_string(facts.capacity) +
         ", \"bufferedSize\": " + std::to_string(facts.buffered) + "}\n";
}

std::string asText(const Facts& facts) {
  const std::string size = facts.size < 0 ? "unknown"
                                          : std::to_string(facts.size) + " bytes (" +
                                                humanBytes(static_cast<double>(facts.size)) + ")";
  return "source    " + facts.name + "\nsize      " + size + "\nseekable  " +
         (facts.seekable ? "yes" : "no") + "\nbuffer    " + humanBytes(facts.capacity) + ", " +
         humanBytes(facts.buffered) + " held\n";
}

// Reads one byte: the size alone cannot tell an empty resource from a broken one.
int probe(const Source& source) {
  char byte = 0;
  unsigned int got = 0;
  const int result = x_fluvia_file_read(source.handle(), &byte, 1, &got);
  return result == FVFR_END_OF_FILE ? FVFR_OK : result;
}

int runInfo(const InfoOptions& options, const Screen& screen) {
  Source source;
  std::string error;
  if (!source.open(options.source, 0, &error)) {
    screen.fail(error);
    return kExitSource;
  }
  const int readable = probe(source);
  if (readable != FVFR_OK) {
    screen.fail(source.explain("read", readable));
    return kExitSource;
  }
  Facts facts;
  facts.name = source.name();
  facts.size = source.size();
  facts.seekable = source.seekable();
  facts.capacity = x_fluvia_file_bufferSize(source.handle());
  facts.buffered = x_fluvia_file_bufferedSize(source.handle());
  const std::string text = options.json ? asJson(facts) : asText(facts);
  if (std::fputs(text.c_str(), stdout) < 0 || std::fflush(stdout) != 0) {
    screen.fail("cannot write to standard output");
    return kExitOutput;
  }
  return kExitOk;
}

}  // namespace

void addInfo(CLI::App& app, Command* chosen) {
  auto options = std::make_shared<InfoOptions>();
  CLI::App* info = app.add_subcommand("info", "Tell what is known about SRC");
  info->add_option("SRC", options->source, "Path or URL")->required();
  info->add_flag("--json", options->json, "As one JSON object");
  info->callback([options, chosen] {
    *chosen = [options](const Screen& screen) { return runInfo(*options, screen); };
  });
}

}  // namespace tools
