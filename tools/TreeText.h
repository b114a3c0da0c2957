#ifndef FLUVIAFS_TOOLS_TREETEXT_H_
#define FLUVIAFS_TOOLS_TREETEXT_H_

#include <memory>
#include <string>

#include "webs/TreeNode.h"
#include "webs/TreeReader.h"

namespace tools {

enum class BodyKind { kXml, kJson };

// XML when the first character that is not blank is '<', JSON otherwise.
BodyKind kindOf(const std::string& body);

// A body as the library's readers understand it.
//
// Threads: as the readers: one thread at a time for all of them.
class ParsedBody {
 public:
  // Reads the whole body, at most INT_MAX bytes, with the reader of its kind.
  explicit ParsedBody(const std::string& body);

  BodyKind kind() const { return kind_; }
  // What is wrong with the body, or an empty text. The tree is there as far as it was built.
  const std::string& error() const { return error_; }
  // The tree, one node a line: key, attributes as @name="value", value after "=".
  std::string indented() const;
  // The reader's own text of the tree.
  std::string written() const;

 private:
  BodyKind kind_;
  std::string error_;
  std::unique_ptr<webs::TreeReader> reader_;
  const webs::TreeNode* root_;
};

}  // namespace tools

#endif  // FLUVIAFS_TOOLS_TREETEXT_H_
