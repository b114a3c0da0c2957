#ifndef FLUVIAFS_TOOLS_TREETEXT_H_
#define FLUVIAFS_TOOLS_TREETEXT_H_

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "webs/TreeNode.h"
#include "webs/TreeReader.h"

namespace tools {

enum class BodyKind { kXml, kJson };

// XML when the first character that is not blank is '<', behind a byte order mark if there is one,
// also in UTF-16. JSON otherwise.
BodyKind kindOf(const std::string& body);

// A body as the library's readers understand it.
//
// Threads: as the readers: one thread at a time for all of them.
class ParsedBody {
 public:
  // Takes a piece of text; false when it cannot.
  using Sink = std::function<bool(const char* text, size_t size)>;

  // Reads the whole body, at most INT_MAX bytes, with the reader of its kind. The tree may take
  // limit bytes as the reader counts them; 0 for no limit.
  explicit ParsedBody(const std::string& body, long long limit = 0);

  BodyKind kind() const { return kind_; }
  // What is wrong with the body, or an empty text. The tree is there as far as it was built.
  const std::string& error() const { return error_; }
  // Whether what is wrong is that the tree exceeds the limit.
  bool isTooLarge() const { return full_; }
  // The tree, one node a line: key, attributes as @name="value", value after "="; see printable().
  // Returns false when the sink did; that is the last it gets.
  bool writeIndented(const Sink& sink) const;
  std::string indented() const;
  // The reader's own text of the tree. Valid until the next call.
  const std::vector<unsigned char>& written() const;

 private:
  void readXml(const std::string& body, long long limit);
  void readJson(const std::string& body, long long limit);

  BodyKind kind_;
  std::string error_;
  bool full_ = false;
  std::unique_ptr<webs::TreeReader> reader_;
  const webs::TreeNode* root_ = nullptr;
};

}  // namespace tools

#endif  // FLUVIAFS_TOOLS_TREETEXT_H_
