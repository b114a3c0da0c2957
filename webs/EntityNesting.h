#ifndef FLUVIAFS_WEBS_ENTITYNESTING_H_
#define FLUVIAFS_WEBS_ENTITYNESTING_H_

#include <string>
#include <unordered_map>
#include <vector>

namespace webs {

// Counts the entities that an XML document declares and how deep their references nest.
//
// expat opens an entity inside another one by recursion. Each level takes 350 bytes of stack
// (measured with 2.5.0 on 64 bits), so 729 levels overflow a stack of 256 KiB. The limits allow for
// frames ten times as large, and are far above those of real documents.
//
// Threads:   not locked; used by one parser.
// Invariant: a declared entity has one level more than the deepest of those that it names, in any
//            order of the declarations, until declare() has returned false.
class EntityNesting {
 public:
  static constexpr int MAX_LEVELS = 64;
  static constexpr int MAX_ENTITIES = 1024;

  // Records the declaration of a general entity with its text. Returns false if there are more than
  // MAX_ENTITIES, or some nest more than MAX_LEVELS deep. A cycle counts as infinitely deep.
  bool declare(const std::string& name, const std::string& text);

 private:
  struct Entity {
    // 1 for an entity that names no other. 0: named, not declared yet.
    int levels = 0;
    // The entities whose text names it, each once.
    std::vector<Entity*> users;
  };

  int deepestNamed(Entity* user, const std::string& text);
  static bool raise(Entity* entity, int levels);

  // Elements do not move when others are added.
  std::unordered_map<std::string, Entity> entities;
  int declared = 0;
};

}  // namespace webs

#endif  // FLUVIAFS_WEBS_ENTITYNESTING_H_
