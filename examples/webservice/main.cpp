// Calls two web services, one that responds in XML and one in JSON, and prints the results. The
// services run on loopback; see LoopbackServer.h.
#include <cstdio>

#include "Catalogue.h"
#include "LoopbackServer.h"
#include "Playlist.h"
#include "ServiceCall.h"

namespace {

void printFailure(const char* what, int result, const webs::MethodResponse& response) {
  std::printf("%s failed (%d): %s, %s\n", what, result, response.getErrorCode().c_str(),
              response.getErrorMsg().c_str());
}

void browse(const std::string& server, const std::string& object) {
  Catalogue catalogue;
  ServiceCall service(&catalogue, server + "/browse");
  const int result = service.call({{"ObjectID", object}, {"Filter", "*"}});
  if (!catalogue.isSuccess()) return printFailure("browse", result, catalogue);
  std::printf("catalogue of %s:\n", object.c_str());
  for (const Catalogue::Item& item : catalogue.items()) {
    std::printf("  %s, %s, %lld bytes\n    %s\n", item.title.c_str(), item.duration.c_str(),
                item.size, item.url.c_str());
  }
}

// One service, called repeatedly through one session.
void playlists(const std::string& server) {
  Playlist playlist;
  ServiceCall service(&playlist, server + "/playlist");
  for (const char* name : {"evening & night", "morning"}) {
    const int result = service.call({{"name", name}});
    if (!playlist.isSuccess()) {
      printFailure("playlist", result, playlist);
      continue;
    }
    std::printf("playlist %s:\n", name);
    for (const Playlist::Entry& entry : playlist.entries()) {
      std::printf("  %s, %d s\n    %s\n", entry.title.c_str(), entry.seconds, entry.url.c_str());
    }
  }
}

}  // namespace

int main() {
  const LoopbackServer server;
  if (!server.isUp()) {
    std::fprintf(stderr, "cannot listen on 127.0.0.1\n");
    return 1;
  }
  browse(server.address(), "64");
  browse(server.address(), "65");
  playlists(server.address());
  return 0;
}
