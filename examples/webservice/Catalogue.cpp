#include "Catalogue.h"

#include <cstdlib>

Catalogue::Catalogue() { initialize(&envelope_); }

void Catalogue::processResult() {
  items_.clear();
  const webs::TreeNode* result = envelope_.findElem("Result", true);
  if (result != nullptr) {
    readItems(result->getValue());
  } else {
    readFault();
  }
}

// The list is a separate document, which the envelope contains as text.
void Catalogue::readItems(const std::string& list) {
  webs::XMLReader document;
  document.initialize();
  if (document.streamIn(list.data(), static_cast<int>(list.size()), 1) != 1) {
    errorCode = "malformed";
    errorMsg = "the list of items cannot be read";
    return;
  }
  webs::TreeNode* items = document.getElem("DIDL-Lite");
  for (int i = 0; items != nullptr && i < items->numberOfElem(); i++) {
    webs::TreeNode* item = items->getElem(i);
    const webs::TreeNode* resource = item->getElem("res");
    // Containers have nothing to play.
    if (item->getKey() != "item" || resource == nullptr) continue;
    items_.push_back({item->findValue("dc:title"), resource->getValue(),
                      resource->getAttrValue("duration"),
                      std::strtoll(resource->getAttrValue("size").c_str(), nullptr, 10)});
  }
  success = envelope_.findValue("NumberReturned") == std::to_string(items_.size());
  if (success) return;
  errorCode = "malformed";
  errorMsg = "the list of items is not complete";
}

void Catalogue::readFault() {
  errorCode = envelope_.findValue("errorCode");
  errorMsg = envelope_.findValue("errorDescription");
  if (!errorCode.empty()) return;
  errorCode = "malformed";
  errorMsg = "this is no answer to browse";
}
