#ifndef FLUVIAFS_PLUGINS_GSTREAMER_HEAD_H_
#define FLUVIAFS_PLUGINS_GSTREAMER_HEAD_H_

#include <string>

// Kind of a resource, as far as it determines how the resource is delivered.
enum class Medium {
  kOther,
  // Files that a pushed demuxer plays and seeks exactly, because one index has all positions:
  // Matroska or WebM that states where its cues are, MP4 or QuickTime without fragments.
  kIndexed,
  // Fragmented MP4. Its pulling demuxer reads the next fragment's head before it takes the pictures
  // and the sound of one, which are stored apart.
  kFragments,
  // MPEG-TS. Its pulling demuxer reads the beginning and then, backwards, the end.
  kTransport,
  // A text that refers to other resources: an HLS playlist, an XML manifest.
  kPlaylist
};

struct Head {
  Medium medium = Medium::kOther;
  // Bytes from the beginning that are needed for a better answer; 0 if this one is final.
  long long wanted = 0;
};

// Determines the kind of a resource from its first bytes.
Head lookAtHead(const std::string& bytes);

#endif  // FLUVIAFS_PLUGINS_GSTREAMER_HEAD_H_
