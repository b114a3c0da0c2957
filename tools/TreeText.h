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

// XML if the first character that is not blank is '<', after an optional byte order mark, also in
// UTF-16. JSON otherwise.
BodyKind kindOf(const std::string& body);

// A body as the library's readers parse it.
//
// Threads: as the readers: one thread at a time for all of them.
class ParsedBody {
 public:
  // Takes a piece of text; returns false on failure.
  using Sink = std::function<bool(const char* text, size_t size)>;

  // Parses the whole body, at most INT_MAX bytes, with the reader for its kind. The tree may use
  // limit bytes as the reader counts them; 0 for no limit.
  explicit ParsedBody(const std::string& body, long long limit = 0);

  BodyKind kind() const { return kind_; }
  // The error in the body, or an empty text. The tree has what was built before the error.
  const std::string& error() const { return error_; }
  // True if the error is that the tree exceeds the limit.
  bool isTooLarge() const { return full_; }
  // Writes the tree, one node per line: key, attributes as @name="value", value after "="; see
  // printable(). Returns false as soon as the sink does.
  bool writeIndented(const Sink& sink) const;
  std::string indented() const;
  // The tree as the reader itself writes it. Valid until the next call.
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
