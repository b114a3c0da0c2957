# shellcheck shell=bash
# Every fault in every column: this library, FFmpeg over it, FFmpeg, GStreamer. Leaves build/matrix.md.
make_matrix() {
  configure release -DFLUVIA_TESTS=ON -DFLUVIA_PEERS=ON && build release --target ordeal_matrix \
    ordeal_matrix_ours ordeal_matrix_adapter ordeal_matrix_ffmpeg ordeal_matrix_gstreamer
}

matrix() {
  local programs=build/release/tests/ordeal/matrix/ordeal_matrix
  "$programs" --jobs 8 --table build/matrix.md "this library=${programs}_ours" \
    "through an adapter=${programs}_adapter" \
    "FFmpeg=${programs}_ffmpeg" "GStreamer=${programs}_gstreamer" | tee build/matrix.log
  return "${PIPESTATUS[0]}"
}

check "packages of the peers" scripts/install-dependencies peers
check "build matrix" make_matrix
check "fault matrix" matrix
