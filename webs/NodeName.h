#ifndef FLUVIAFS_WEBS_NODENAME_H_
#define FLUVIAFS_WEBS_NODENAME_H_

#include <string>

namespace webs {

// The name of a node. Names of array members, runs of '[', can be long and are alike: one text of
// each length serves all of them. Every other name is a copy of its own.
//
// Threads: as TreeNode: the shared texts are made from one thread at a time.
class NodeName {
 public:
  NodeName() = default;
  explicit NodeName(const std::string& name) { set(name); }

  void set(const std::string& name);
  void clear();
  // Valid until the next set() or clear().
  const std::string& get() const { return shared != nullptr ? *shared : own; }
  // Whether a name shares its text: a run of '[' of 16 to MAX_SHARED characters.
  static bool isShared(const std::string& name);

  // As long as the scanner's names of array members get.
  static constexpr size_t MAX_SHARED = 511;

 private:
  std::string own;
  // Never destroyed.
  const std::string* shared = nullptr;
};

}  // namespace webs

#endif  // FLUVIAFS_WEBS_NODENAME_H_
