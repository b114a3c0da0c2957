#ifndef FLUVIAFS_WEBS_ENTITYNESTING_H_
#define FLUVIAFS_WEBS_ENTITYNESTING_H_

#include <string>
#include <unordered_map>
#include <vector>

namespace webs {

// Counts the entities that an XML document declares and how deep their references nest.
//
// expat opens an entity inside another one by a recursion. It takes 350 bytes of stack a level
// (measured with 2.5.0 on 64 bits), so that 729 levels overflow a stack of 256 KiB. The limits
// allow for frames ten times as large, and no document that people write comes near them.
//
// Threads:   not locked; one parser's use.
// Invariant: a declared entity has one level more than the deepest of those that it names, whatever
//            the order of the declarations, until declare() has returned false.
class EntityNesting {
 public:
  static constexpr int MAX_LEVELS = 64;
  static constexpr int MAX_ENTITIES = 1024;

  // Notes the declaration of a general entity with its text. Returns false when there are more than
  // MAX_ENTITIES, or some nest more than MAX_LEVELS deep. A cycle nests without end.
  bool declare(const std::string& name, const std::string& text);

 private:
  struct Entity {
    // An entity that names no other has one. 0: named, not declared yet.
    int levels = 0;
    // Those whose text names it, each once.
    std::vector<Entity*> users;
  };

  int deepestNamed(Entity* user, const std::string& text);
  static bool raise(Entity* entity, int levels);

  // Elements stay where they are when others come.
  std::unordered_map<std::string, Entity> entities;
  int declared = 0;
};

}  // namespace webs

#endif  // FLUVIAFS_WEBS_ENTITYNESTING_H_
