#ifndef FLUVIAFS_EXAMPLES_WEBSERVICE_CATALOGUE_H_
#define FLUVIAFS_EXAMPLES_WEBSERVICE_CATALOGUE_H_

#include <string>
#include <vector>

#include "webs/MethodResponse.h"
#include "webs/XMLReader.h"

// The response of a media server to "browse": a SOAP envelope around a list of items, or a fault.
//
// After a call: success with the items, or errorCode and errorMsg from the fault. Any other
// response sets the code "malformed".
class Catalogue : public webs::MethodResponse {
 public:
  struct Item {
    std::string title;
    std::string url;
    std::string duration;  // as the server writes it, h:mm:ss.mmm
    long long size;        // bytes
  };

  Catalogue();
  void processResult() override;
  const std::vector<Item>& items() const { return items_; }

 private:
  void readItems(const std::string& list);
  void readFault();

  webs::XMLReader envelope_;
  std::vector<Item> items_;
};

#endif  // FLUVIAFS_EXAMPLES_WEBSERVICE_CATALOGUE_H_
