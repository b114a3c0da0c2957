#ifndef FLUVIAFS_WEBS_TREENODEERROR_H_
#define FLUVIAFS_WEBS_TREENODEERROR_H_

#include <string>

namespace webs {

// The last failed lookup of a tree node: which operation failed, and a code.
//
// Threads: not locked; belongs to the node that holds it.
struct TreeNodeError {
  // No failure yet: code 0, empty message.
  TreeNodeError() = default;
  ~TreeNodeError() = default;
  TreeNodeError(const TreeNodeError&) = default;
  TreeNodeError& operator=(const TreeNodeError&) = default;

  // Stores both; the next failure overwrites them.
  void error(const std::string& text, int number) {
    message = text;
    code = number;
  }

  int code = 0;
  std::string message;
};

}  // namespace webs

#endif  // FLUVIAFS_WEBS_TREENODEERROR_H_
