#ifndef FLUVIAFS_WEBS_TREELIMIT_H_
#define FLUVIAFS_WEBS_TREELIMIT_H_

#include <string>

namespace webs {

// Limits the nodes and bytes of a reader's tree. A reader inherits it and asks before it builds;
// after the first refusal everything is refused until the tree is emptied.
//
// Bytes are computed, not measured: nodes and attributes with their list entries, and their names,
// values and texts, without the allocator's overhead. A long text in pieces can take twice its
// size.
//
// Threads: not locked; the reader's.
class TreeLimit {
 public:
  // 0 or less: no limit, which is the default. Applies to what is built from now on; what is
  // already built counts.
  void setTreeLimit(long long nodes, long long bytes);
  // True if something was refused since the tree was last emptied.
  bool isTreeFull() const { return full; }

 protected:
  TreeLimit() = default;
  ~TreeLimit() = default;

  // Each counts what is to be built. Returns false if it is refused; the first refusal is logged.
  bool takeNode(const std::string& name);
  bool takeAttribute(const std::string& name, const std::string& text);
  bool takeText(size_t size);
  // True if that many bytes may be held beside the tree, for text that waits to be parsed.
  bool mayHold(size_t size);
  // Call this when the tree is empty.
  void forgetTree();

 private:
  bool take(long long newNodes, size_t newBytes);
  bool refuse();

  long long maxNodes = 0;
  long long maxBytes = 0;
  long long nodes = 0;
  long long bytes = 0;
  bool full = false;
};

}  // namespace webs

#endif  // FLUVIAFS_WEBS_TREELIMIT_H_
