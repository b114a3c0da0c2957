// Serves the files of a folder on loopback, with faults, until its standard input ends.
//
// Prints its address, and with --tls on a second line the file of its certificate. At the end it
// prints for each requested file: requests, bytes of body, name (with the folders below FOLDER).
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "tests/support/Behaviours.h"
#include "tests/support/CommandLine.h"
#include "tests/support/FaultServer.h"
#include "tests/support/HttpProbes.h"

namespace {

// Files of the folder and its subfolders, with their relative names.
std::vector<std::string> filesIn(const std::string& folder) {
  namespace fs = std::filesystem;
  std::vector<std::string> names;
  std::error_code error;
  for (const auto& entry : fs::recursive_directory_iterator(folder, error)) {
    if (entry.is_regular_file(error)) {
      names.push_back(fs::relative(entry.path(), folder, error).string());
    }
  }
  return names;
}

struct Options {
  bool tls = false;
  long long drop = -1;
  std::set<std::string> missingOnce;
  std::set<std::string> cutOnce;
  std::string folder;
};

Options parse(int argc, char** argv) {
  Options options;
  support::CommandLine line(
      "Serves the files of a folder on loopback, with faults, until its input ends.");
  line.flag("!--plain,--tls", &options.tls, "Serve http (the default) or https");
  line.option("--drop", &options.drop, "End every connection after that many bytes of body");
  line.option("--missing-once", &options.missingOnce,
              "Answer 404 to the first request for this file; may be repeated")
      .repeatable();
  line.option("--cut-once", &options.cutOnce,
              "End the first response of this file in its middle; may be repeated")
      .repeatable();
  line.option("FOLDER", &options.folder, "What to serve").required();
  line.parseOrExit(argc, argv);
  return options;
}

support::Behaviour behaviourOf(const Options& options, const std::string& name) {
  const std::string path = options.folder + "/" + name;
  const support::Behaviour sound = support::serveFile(path, options.drop);
  if (options.missingOnce.count(name) > 0) {
    return support::inTurn({support::answerStatus(404), sound});
  }
  if (options.cutOnce.count(name) > 0) {
    std::error_code error;
    const auto middle = static_cast<long long>(std::filesystem::file_size(path, error) / 2);
    return support::inTurn({support::serveFile(path, middle), sound});
  }
  return sound;
}

void waitForEndOfInput() {
  char ignored[64];
  while (read(STDIN_FILENO, ignored, sizeof ignored) > 0) {
  }
}

}  // namespace

int main(int argc, char** argv) {
  const Options options = parse(argc, argv);
  const std::vector<std::string> names = filesIn(options.folder);
  if (names.empty()) {
    fprintf(stderr, "media-server: no files in %s\n", options.folder.c_str());
    return 2;
  }
  support::TestCertificate certificate;
  const auto server = options.tls ? std::make_unique<support::FaultServer>(
                                        certificate.certificate(), certificate.key())
                                  : std::make_unique<support::FaultServer>();
  for (const std::string& name : names) {
    server->on("/" + name, behaviourOf(options, name));
  }
  printf("%s\n", server->url("").c_str());
  if (options.tls) printf("%s\n", certificate.certificate().c_str());
  fflush(stdout);
  waitForEndOfInput();
  for (const std::string& name : names) {
    const int requests = server->requestCount("/" + name);
    if (requests > 0) {
      printf("%d %lld %s\n", requests, server->bodyBytes("/" + name), name.c_str());
    }
  }
  return 0;
}
