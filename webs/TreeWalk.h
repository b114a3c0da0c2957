#ifndef FLUVIAFS_WEBS_TREEWALK_H_
#define FLUVIAFS_WEBS_TREEWALK_H_

#include <vector>

namespace webs {

// Visits the subtree of start depth first, children in order, with a stack on the heap: the depth
// is bounded by memory and not by the thread's stack.
//
// enter(node, above, index) is called before the node's children: above is the node whose child
// number index it is, null for start. When it returns true the walk ends and returns that node.
// leave(node) is called after the node's children. Returns null when the walk came to its end.
// The tree must not change meanwhile.
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
