#ifndef FLUVIAFS_WEBS_TREEWALK_H_
#define FLUVIAFS_WEBS_TREEWALK_H_

#include <vector>

namespace webs {

// Visits the subtree of start depth first, children in order, with a stack on the heap: memory
// limits the depth, not the thread's stack.
//
// enter(node, above, index) is called before the node's children: node is child number index of
// above, which is null for start. If it returns true, the walk ends and returns that node.
// leave(node) is called after the node's children. Returns null if the walk was complete. The tree
// must not change meanwhile.
template <typename Node, typename Enter, typename Leave>
Node* walkTree(Node* start, Enter enter, Leave leave) {
  struct Step {
    Node* node;
    int next;
  };
  if (enter(start, static_cast<Node*>(nullptr), 0)) return start;
  std::vector<Step> way{{start, 0}};
  while (!way.empty()) {
    Step& last = way.back();
    if (last.next == last.node->numberOfElem()) {
      leave(last.node);
      way.pop_back();
      continue;
    }
    const int index = last.next++;
    Node* child = last.node->getElem(index);
    if (enter(child, last.node, index)) return child;
    way.push_back({child, 0});
  }
  return nullptr;
}

}  // namespace webs

#endif  // FLUVIAFS_WEBS_TREEWALK_H_
