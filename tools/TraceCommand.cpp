#include "TraceCommand.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <vector>

#include "Commands.h"
#include "Output.h"
#include "trace/LogReader.h"
#include "trace/TracePage.h"
#include "trace/TraceStory.h"

namespace tools {
namespace {

// Feeds the whole file to the reader. Returns false with errno set.
bool readAll(int file, LogReader* reader) {
  std::vector<char> buffer(1 << 18);
  for (;;) {
    const ssize_t got = read(file, buffer.data(), buffer.size());
    if (got < 0 && errno == EINTR) {
      continue;
    }
    if (got < 0) {
      return false;
    }
    if (got == 0) {
      reader->finish();
      return true;
    }
    reader->feed(buffer.data(), static_cast<size_t>(got));
  }
}

bool readLog(const std::string& log, LogReader* reader, std::string* error) {
  const bool given = log == "-";
  const int file = given ? STDIN_FILENO : open(log.c_str(), O_RDONLY | O_CLOEXEC);
  const bool read = file >= 0 && readAll(file, reader);
  if (!read) {
    *error = "cannot read " + log + ": " + std::strerror(errno);
  }
  if (file >= 0 && !given) {
    close(file);
  }
  return read;
}

}  // namespace

int runTrace(const TraceOptions& options, const Screen& screen) {
  std::string error;
  TraceStory story;
  LogReader reader([&story](const LogEntry& entry) { story.take(entry); });
  if (!readLog(options.log, &reader, &error)) {
    screen.fail(error);
    return kExitSource;
  }
  story.finish();
  const std::string title = options.log == "-" ? "standard input" : options.log;
  Output output;
  if (!output.open(options.output, false, &error) ||
      !writePage(tracePage(title, story, reader.counts()), &output, &error)) {
    screen.fail(error);
    return kExitOutput;
  }
  return kExitOk;
}

bool writePage(const std::string& page, Output* output, std::string* error) {
  constexpr size_t kPiece = 1 << 20;
  for (size_t at = 0; at < page.size(); at += kPiece) {
    const size_t size = std::min(kPiece, page.size() - at);
    if (!output->write(page.data() + at, static_cast<unsigned int>(size), error)) {
      return false;
    }
  }
  return output->finish(error);
}

}  // namespace tools
