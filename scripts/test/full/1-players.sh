# shellcheck shell=bash
# Real media through real players, with AddressSanitizer in what is ours. The device's build and the Debian
# packages are made behind it; the parts of the servers and of the packages await them.
. scripts/sanitizers.sh
make_players() {
  configure asan -DFLUVIA_TESTS=ON -DFLUVIA_PLAYERS=ON -DFLUVIA_PLAYERS_REQUIRED=ON && build asan
}
make_recipes() {
  configure release -DFLUVIA_TESTS=ON -DFLUVIA_PLAYERS=ON -DFLUVIA_PLAYERS_REQUIRED=ON &&
    build release --target gstfluvia example_ffmpeg example_mpv media_server
}
# make_arm_build PRESET TARGETS...
make_arm_build() {
  local preset=$1
  shift
  configure "$preset" && build "$preset" --target "$@"
}
# With the command line as a program of this machine, for the tests with servers.
make_armv7() {
  make_arm_build armv7 fluviafs fluvia &&
    printf '#!/bin/sh\nexec %q %q "$@"\n' "$PWD/scripts/arm-run" "$PWD/build/armv7/tools/fluvia" \
      >build/armv7/emulated-fluvia &&
    chmod +x build/armv7/emulated-fluvia
}
await "packages and roots"
check "build with the players" make_players
check "build of the recipes" make_recipes
behind "build armv7" make_armv7
behind "make the packages" scripts/make-debs
# Players wait for the times of their pictures: more of them run at a time than of other tests.
run_ctest asan -L players -j $((3 * JOBS))
check "manual page of fluvia-mount" scripts/checks/program-page build/asan/tools/fluvia-mount
FLUVIA_MEDIA=$PWD/build/asan/media \
  check "recipes of the README" tests/products/players/players.sh "$PWD/build/release" readme_recipes
