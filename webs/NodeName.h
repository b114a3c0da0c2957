#ifndef FLUVIAFS_WEBS_NODENAME_H_
#define FLUVIAFS_WEBS_NODENAME_H_

#include <string>

namespace webs {

// The name of a node. Names of array members are runs of '[': they can be long and are alike, so
// all names of one length share one text. Every other name has its own copy.
//
// Threads: as TreeNode: the shared texts are created by one thread at a time.
class NodeName {
 public:
  NodeName() = default;
  explicit NodeName(const std::string& name) { set(name); }

  void set(const std::string& name);
  void clear();
  // Valid until the next set() or clear().
  const std::string& get() const { return shared != nullptr ? *shared : own; }
  // True if a name shares its text: a run of '[' of 16 to MAX_SHARED characters.
  static bool isShared(const std::string& name);

  // The longest name of an array member that the scanner makes.
  static constexpr size_t MAX_SHARED = 511;

 private:
  std::string own;
  // Never destroyed.
  const std::string* shared = nullptr;
};

}  // namespace webs

#endif  // FLUVIAFS_WEBS_NODENAME_H_
