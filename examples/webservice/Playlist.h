#ifndef FLUVIAFS_EXAMPLES_WEBSERVICE_PLAYLIST_H_
#define FLUVIAFS_EXAMPLES_WEBSERVICE_PLAYLIST_H_

#include <string>
#include <vector>

#include "webs/JSONReader.h"
#include "webs/MethodResponse.h"

// A playlist as JSON: {"status":"ok","entries":[{"title":..,"url":..,"seconds":..},..]}.
//
// After a call: success with the entries, or errorCode and errorMsg, which the service calls "code"
// and "message". Any other text sets the code "malformed".
class Playlist : public webs::MethodResponse {
 public:
  struct Entry {
    std::string title;
    std::string url;
    int seconds;
  };

  Playlist();
  void processResult() override;
  const std::vector<Entry>& entries() const { return entries_; }

 private:
  webs::JSONReader reader_;
  std::vector<Entry> entries_;
};

#endif  // FLUVIAFS_EXAMPLES_WEBSERVICE_PLAYLIST_H_
