# shellcheck shell=bash
# A film over a server that is gone, or silent, for 30 s in the middle of it, through each adapter.
make_outages() {
  configure release -DFLUVIA_TESTS=ON -DFLUVIA_PLAYERS=ON && build release
}

check "packages of the players" scripts/install-dependencies players
check "build with the players" make_outages
check "media and references" tests/products/players/players.sh "$PWD/build/release" make_media
for player in ffmpeg gstreamer mpv mount cat; do
  for way in away_30 silent_30; do
    check "$player, $way" timeout --kill-after=10 200 tests/products/players/players.sh "$PWD/build/release" "${player}_$way"
  done
done
# HLS: a live stream of 40 s, and one on a link that is too slow for it.
for test in live_long live_late; do
  check "ffmpeg, HLS $test" timeout --kill-after=10 200 tests/products/players/players.sh "$PWD/build/release" "ffmpeg_hls_$test"
done
check "gstreamer, live for 40 s" timeout --kill-after=10 200 tests/products/players/adaptive_gst.sh "$PWD/build/release" \
  gst_adaptive_live_long
