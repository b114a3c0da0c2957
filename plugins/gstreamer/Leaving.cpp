#include "Leaving.h"

Leaving& Leaving::instance() {
  static Leaving* const names = new Leaving();
  return *names;
}

bool Leaving::enter(const std::string& name, Stay* stay) {
  std::unique_lock<std::mutex> held(lock_);
  changed_.wait(held, [&] { return stay->over || names_.count(name) == 0; });
  stay->entered = !stay->over;
  return stay->entered;
}

void Leaving::count(const std::string& name, Stay* stay) {
  if (!stay->entered || stay->counted) return;
  stay->counted = true;
  names_.insert(name);
}

void Leaving::quit(const std::string& name, Stay* stay) {
  const std::lock_guard<std::mutex> guard(lock_);
  stay->over = true;
  count(name, stay);
  changed_.notify_all();
}

void Leaving::close(const std::string& name, Stay* stay) {
  const std::lock_guard<std::mutex> guard(lock_);
  count(name, stay);
}

void Leaving::leave(const std::string& name, Stay* stay) {
  const std::lock_guard<std::mutex> guard(lock_);
  stay->entered = false;
  if (!stay->counted) return;
  stay->counted = false;
  names_.erase(names_.find(name));
  changed_.notify_all();
}
