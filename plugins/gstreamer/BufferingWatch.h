#ifndef FLUVIAFS_PLUGINS_GSTREAMER_BUFFERINGWATCH_H_
#define FLUVIAFS_PLUGINS_GSTREAMER_BUFFERINGWATCH_H_

#include "SourceReader.h"

// Decides which buffering percentages a player is told.
//
// Buffering begins when less than a tenth is held and ends with 100 when half is, or all that is
// left of the source. A player that was told less than 100 pauses and reads no more, so every
// buffering ends: also when the amount has stopped growing, and with the source.
//
// Threads: one at a time.
class BufferingWatch {
 public:
  // Takes the levels as they are now, at looks of equal distance. Returns the percentage to tell,
  // or -1 for none.
  int update(const SourceLevels& levels, bool ended);

 private:
  // Looks without growth after which there is nothing to wait for: five seconds.
  static constexpr int kPatience = 50;

  bool buffering_ = false;
  int told_ = -1;
  long long most_ = 0;
  int idleLooks_ = 0;
};

#endif  // FLUVIAFS_PLUGINS_GSTREAMER_BUFFERINGWATCH_H_
