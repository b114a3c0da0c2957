#ifndef FLUVIAFS_TESTS_SUPPORT_PAUSES_H_
#define FLUVIAFS_TESTS_SUPPORT_PAUSES_H_

#include <string>

namespace support {

// Holds threads at the named pause points of the library, in builds that have them. One object at a
// time in a process; its end releases every held thread.
class Pauses {
 public:
  Pauses();
  ~Pauses();
  Pauses(const Pauses&) = delete;
  Pauses& operator=(const Pauses&) = delete;

  // The next thread that reaches that point waits there. Releases a thread that is held there.
  void holdAt(const std::string& point);
  // Waits until a thread is held there. Returns false after 20 seconds (of patience).
  bool reached(const std::string& point);
  // Releases the thread that is held there; later ones pass.
  void release(const std::string& point);
};

}  // namespace support

#endif  // FLUVIAFS_TESTS_SUPPORT_PAUSES_H_
