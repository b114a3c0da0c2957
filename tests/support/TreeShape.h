#ifndef FLUVIAFS_TESTS_SUPPORT_TREESHAPE_H_
#define FLUVIAFS_TESTS_SUPPORT_TREESHAPE_H_

#include <string>
#include <vector>

#include "webs/TreeNode.h"

// A tree on one line, for comparisons: key@attribute=value='text'{children}. Leaves that were
// quoted have "text" instead. The key of a root is shown too.
std::string shapeOf(const webs::TreeNode& node);

// The text that toXMLContent and toJSONContent append.
std::string xmlOf(const webs::TreeNode& node);
std::string jsonOf(const webs::TreeNode& node);
std::string textOf(const std::vector<unsigned char>& bytes);

// Gives access to the state that all trees share.
class Stations : public webs::TreeNode {
 public:
  // Resets the state to that of a new process, for the tests that count. No tree may exist.
  static void startFresh() {
    clean();
    entryCreatedNum = 0;
    attrCreatedNum = 0;
  }
  static int nodesCreated() { return entryCreatedNum; }
  static int attributesCreated() { return attrCreatedNum; }
  static size_t nodesKept() { return entryStation->size(); }
  static size_t attributesKept() { return attrStation->size(); }
  static TreeNode* lastKept() { return entryStation->empty() ? nullptr : entryStation->top(); }
};

#endif  // FLUVIAFS_TESTS_SUPPORT_TREESHAPE_H_
