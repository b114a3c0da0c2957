#ifndef FLUVIAFS_WEBS_TREELIMIT_H_
#define FLUVIAFS_WEBS_TREELIMIT_H_

#include <string>

namespace webs {

// What a reader may build: so many nodes, so many bytes. A reader inherits it and asks before it
// builds; after the first refusal it refuses everything until the tree is emptied.
//
// Bytes are counted, not measured: nodes and attributes with their place in a list, and their
// names, values and texts, without what the allocator adds. A long text in pieces can take twice
// its size.
//
// Threads: not locked; the reader's.
class TreeLimit {
 public:
  // 0 or less: no limit, which is also what a reader begins with. Holds for what is built from now
  // on; what stands already counts.
  void setTreeLimit(long long nodes, long long bytes);
  // Whether something was refused since the tree was last emptied.
  bool isTreeFull() const { return full; }

 protected:
  TreeLimit() = default;
  ~TreeLimit() = default;

  // Each counts what is to be built; false, and a line in the log the first time, when it is
  // refused.
  bool takeNode(const std::string& name);
  bool takeAttribute(const std::string& name, const std::string& text);
  bool takeText(size_t size);
  // Whether so many bytes may be held beside the tree, for text that waits to be parsed.
  bool mayHold(size_t size);
  // The tree is empty.
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
