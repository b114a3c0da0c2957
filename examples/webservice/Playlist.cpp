#include "Playlist.h"

Playlist::Playlist() { initialize(&reader_); }

// Keys include the quotes that they have in the text.
void Playlist::processResult() {
  entries_.clear();
  webs::TreeNode* list = reader_.findElem("\"entries\"", true);
  success = list != nullptr && reader_.findElem("\"status\"", "ok") != nullptr;
  if (!success) {
    errorCode = reader_.findValue("\"code\"");
    errorMsg = reader_.findValue("\"message\"");
    if (!errorCode.empty()) return;
    errorCode = "malformed";
    errorMsg = "this is no playlist";
    return;
  }
  for (int i = 0; i < list->numberOfElem(); i++) {
    webs::TreeNode* entry = list->getElem(i);
    const webs::TreeNode* seconds = entry->getElem("\"seconds\"");
    entries_.push_back({entry->findValue("\"title\""), entry->findValue("\"url\""),
                        seconds != nullptr ? seconds->getIntegerValue() : 0});
  }
}
