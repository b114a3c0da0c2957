#ifndef FLUVIAFS_TESTS_SUPPORT_DELAYS_H_
#define FLUVIAFS_TESTS_SUPPORT_DELAYS_H_

namespace support {

// Stops threads for up to 3 ms at the pause points of the library, at random, in builds that have
// them: rare interleavings become common. One object at a time in a process, and none beside
// Pauses.
class Delays {
 public:
  Delays();
  ~Delays();
  Delays(const Delays&) = delete;
  Delays& operator=(const Delays&) = delete;
};

}  // namespace support

#endif  // FLUVIAFS_TESTS_SUPPORT_DELAYS_H_
