#ifndef FLUVIAFS_PLUGINS_GSTREAMER_HEAD_H_
#define FLUVIAFS_PLUGINS_GSTREAMER_HEAD_H_

#include <string>

// What the beginning of a resource says of it, as far as that decides how it is delivered.
enum class Medium {
  kOther,
  // Files that a demuxer which is pushed plays and seeks exactly, because one index says where
  // everything is: Matroska or WebM that tells where its cues are, MP4 or QuickTime without
  // fragments.
  kIndexed,
  // MP4 of fragments. Its demuxer, when it pulls, looks at the next fragment before it takes the
  // pictures and the sound of one, which stand apart.
  kFragments,
  // A text that names other resources: an HLS playlist, an XML manifest.
  kPlaylist
};

struct Head {
  Medium medium = Medium::kOther;
  // Bytes from the beginning that are needed to say more; 0 when this is the answer.
  long long wanted = 0;
};

// Looks at the first bytes of a resource.
Head lookAtHead(const std::string& bytes);

#endif  // FLUVIAFS_PLUGINS_GSTREAMER_HEAD_H_
