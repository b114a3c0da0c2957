#include "webs/NodeName.h"

#include <vector>

#include "util/NeverDestroyed.h"

namespace webs {
namespace {

// Shorter texts fit into a std::string without an allocation.
const size_t MIN_SHARED = 16;

// By length. Empty until a text is first needed; its size never changes after that.
util::NeverDestroyed<std::vector<std::string>> runs;

const std::string& sharedRun(size_t length) {
  if (runs->empty()) runs->resize(NodeName::MAX_SHARED + 1);
  std::string& run = (*runs)[length];
  if (run.empty()) run.assign(length, '[');
  return run;
}

}  // namespace

bool NodeName::isShared(const std::string& name) {
  return name.size() >= MIN_SHARED && name.size() <= MAX_SHARED && name[0] == '[' &&
         name == sharedRun(name.size());
}

void NodeName::set(const std::string& name) {
  if (isShared(name)) {
    shared = &sharedRun(name.size());
    std::string().swap(own);
  } else {
    shared = nullptr;
    own = name;
  }
}

void NodeName::clear() {
  own.clear();
  shared = nullptr;
}

}  // namespace webs
