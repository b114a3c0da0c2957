#ifndef FLUVIAFS_TESTS_SUPPORT_PAUSES_H_
#define FLUVIAFS_TESTS_SUPPORT_PAUSES_H_

#include <string>

namespace support {

// Holds threads at the named pause points of the library, in builds that have them. One at a time
// in a process; at its end every held thread goes on.
class Pauses {
 public:
  Pauses();
  ~Pauses();
  Pauses(const Pauses&) = delete;
  Pauses& operator=(const Pauses&) = delete;

  // The next thread that comes to that point waits there.
  void holdAt(const std::string& point);
  // Waits until a thread is held there; false after 20 seconds (of patience).
  bool reached(const std::string& point);
  // Lets the thread that is held there go on; later ones pass.
  void release(const std::string& point);
};

}  // namespace support

#endif  // FLUVIAFS_TESTS_SUPPORT_PAUSES_H_
