#include "webs/MethodResponse.h"

#include "webs/TreeLimit.h"
#include "webs/TreeReader.h"

namespace webs {

MethodResponse::MethodResponse() = default;

void MethodResponse::initialize(TreeReader* treeReader) {
  switchReader(treeReader);
  if (reader == nullptr) return;
  limitReader();
  reader->initialize();
}

void MethodResponse::switchReader(TreeReader* treeReader) { reader = treeReader; }

void MethodResponse::setTreeLimit(long long nodes, long long bytes) {
  maxNodes = nodes;
  maxBytes = bytes;
  limitReader();
}

// Not every TreeReader has a limit.
void MethodResponse::limitReader() {
  TreeLimit* limit = dynamic_cast<TreeLimit*>(reader);
  if (limit != nullptr) limit->setTreeLimit(maxNodes, maxBytes);
}

void MethodResponse::readyReceive() {
  limitReader();
  reader->clear();
  errorCode.clear();
  errorMsg.clear();
  success = false;
  reader->readyRead();
}

int MethodResponse::receive(void* data, int size, void*, int) {
  reader->streamIn(static_cast<const char*>(data), size, 0);
  return size;
}

void MethodResponse::finishReceive() {
  reader->streamIn(nullptr, 0, 1);
  processResult();
}

void MethodResponse::processResult() {}

TreeNode* MethodResponse::findResultStruct() const { return nullptr; }

}  // namespace webs
