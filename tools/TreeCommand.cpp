#include <fluviafs.h>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "Commands.h"
#include "Passwords.h"
#include "Source.h"
#include "TreeText.h"

namespace tools {
namespace {

// A body becomes a tree in memory, many times its size: a larger one is not a response.
const size_t kMaxBody = size_t{64} << 20;
const unsigned int kReadSize = 65536;

bool readBody(const std::string& name, std::string* body, std::string* error) {
  Source source;
  if (!source.open(name, 0, error)) return false;
  std::vector<char> buffer(kReadSize);
  while (true) {
    unsigned int got = 0;
    const int code = x_fluvia_file_read(source.handle(), buffer.data(), kReadSize, &got);
    if (code == FVFR_END_OF_FILE) return true;
    if (code != FVFR_OK) {
      *error = source.explain("read", code);
      return false;
    }
    if (got == 0) return true;
    if (body->size() + got > kMaxBody) {
      *error = maskPassword(name) + " is larger than 64 MiB: too large for a tree";
      return false;
    }
    body->append(buffer.data(), got);
  }
}

bool put(const char* text, size_t size) { return std::fwrite(text, 1, size, stdout) == size; }

bool print(const ParsedBody& parsed, bool writeBack) {
  bool done = false;
  if (writeBack) {
    const std::vector<unsigned char>& text = parsed.written();
    done = put(reinterpret_cast<const char*>(text.data()), text.size()) && put("\n", 1);
  } else {
    done = parsed.writeIndented(put);
  }
  return std::fflush(stdout) == 0 && done;
}

std::string problemOf(const ParsedBody& parsed, const std::string& source) {
  const std::string kind = parsed.kind() == BodyKind::kXml ? "XML" : "JSON";
  const std::string text =
      "cannot understand " + maskPassword(source) + " as " + kind + ": " + parsed.error();
  return parsed.isTooLarge() ? text + ". --limit sets another." : text;
}

}  // namespace

int runTree(const TreeOptions& options, const Screen& screen) {
  std::string body, error;
  if (!readBody(options.source, &body, &error)) {
    screen.fail(error);
    return kExitSource;
  }
  const ParsedBody parsed(body, options.limit);
  const bool isXml = parsed.kind() == BodyKind::kXml;
  if (options.xml && !isXml) {
    screen.fail(maskPassword(options.source) +
                " is not XML, and --xml writes back only XML: JSON keys hold "
                "their quotes. Use --json.");
    return kExitUsage;
  }
  if (options.json && isXml) {
    screen.fail(maskPassword(options.source) +
                " is XML, and --json writes back only JSON: XML keys have no "
                "quotes. Use --xml.");
    return kExitUsage;
  }
  if (!print(parsed, options.xml || options.json)) {
    screen.fail("cannot write to standard output");
    return kExitOutput;
  }
  if (parsed.error().empty()) return kExitOk;
  screen.fail(problemOf(parsed, options.source));
  return kExitSource;
}

}  // namespace tools
