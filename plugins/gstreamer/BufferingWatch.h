#ifndef FLUVIAFS_PLUGINS_GSTREAMER_BUFFERINGWATCH_H_
#define FLUVIAFS_PLUGINS_GSTREAMER_BUFFERINGWATCH_H_

#include "SourceReader.h"

// Decides which buffering percentages are reported to a player.
//
// Buffering begins when less than a tenth is buffered. It ends with 100 when half is, or all that
// is left of the source. A player that got less than 100 pauses and reads no more, so every
// buffering must end: also when the amount stops growing, and with the source.
//
// Threads: one at a time.
class BufferingWatch {
 public:
  // Takes the current levels; call it at equal intervals. Returns the percentage to report, or -1
  // for none.
  int update(const SourceLevels& levels, bool ended);

 private:
  // After this many calls without growth there is nothing to wait for: five seconds.
  static constexpr int kPatience = 50;

  bool buffering_ = false;
  int told_ = -1;
  long long most_ = 0;
  int idleLooks_ = 0;
};

#endif  // FLUVIAFS_PLUGINS_GSTREAMER_BUFFERINGWATCH_H_
