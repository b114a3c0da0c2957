#include "webs/EntityNesting.h"

#include <algorithm>
#include <utility>

namespace webs {

bool EntityNesting::declare(const std::string& name, const std::string& text) {
  if (++declared > MAX_ENTITIES) return false;
  Entity* entity = &entities[name];
  return raise(entity, 1 + deepestNamed(entity, text));
}

// Checks each "&name;". A numeric character reference ("&#60;") counts as a name that is never
// declared.
int EntityNesting::deepestNamed(Entity* user, const std::string& text) {
  int deepest = 0;
  size_t begin = text.find('&');
  while (begin != std::string::npos) {
    const size_t end = text.find_first_of("&;", begin + 1);
    if (end == std::string::npos) break;
    if (text[end] == ';') {
      Entity* named = &entities[text.substr(begin + 1, end - begin - 1)];
      deepest = std::max(deepest, named->levels);
      if (named->users.empty() || named->users.back() != user) named->users.push_back(user);
    }
    begin = text.find('&', end);
  }
  return deepest;
}

// Sets the levels of entity, and one more for each entity that uses it. Terminates, because none
// gets the same number twice and none more than the limit.
bool EntityNesting::raise(Entity* entity, int levels) {
  std::vector<std::pair<Entity*, int>> due{{entity, levels}};
  while (!due.empty()) {
    const auto [next, depth] = due.back();
    due.pop_back();
    if (next->levels >= depth) continue;
    if (depth > MAX_LEVELS) return false;
    next->levels = depth;
    for (Entity* user : next->users) due.push_back({user, depth + 1});
  }
  return true;
}

}  // namespace webs
