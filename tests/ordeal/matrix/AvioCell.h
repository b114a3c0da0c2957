#ifndef FLUVIAFS_TESTS_ORDEAL_MATRIX_AVIOCELL_H_
#define FLUVIAFS_TESTS_ORDEAL_MATRIX_AVIOCELL_H_

#include <string>

extern "C" {
#include <libavformat/avio.h>
#include <libavutil/error.h>
}

namespace matrix {

// Code shared by the columns that read through FFmpeg's AVIOContext.

inline std::string nameOfAvError(int error) {
  char text[AV_ERROR_MAX_STRING_SIZE] = "";
  av_strerror(error, text, sizeof text);
  return text;
}

// Client::readAt of a context.
inline long readAvioAt(AVIOContext* io, long long offset, char* bytes, size_t count,
                       std::string* why) {
  if (avio_tell(io) != offset) {
    const long long moved = avio_seek(io, offset, SEEK_SET);
    if (moved != offset) {
      *why = "seek: " + nameOfAvError(static_cast<int>(moved));
      return -1;
    }
  }
  const int got =
      avio_read_partial(io, reinterpret_cast<unsigned char*>(bytes), static_cast<int>(count));
  if (got == AVERROR_EOF) return 0;
  if (got < 0) *why = "read: " + nameOfAvError(got);
  return got < 0 ? -1 : got;
}

}  // namespace matrix

#endif  // FLUVIAFS_TESTS_ORDEAL_MATRIX_AVIOCELL_H_
