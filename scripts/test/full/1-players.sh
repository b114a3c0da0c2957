# shellcheck shell=bash
# Real media through real players, with AddressSanitizer in what is ours.
. scripts/sanitizers.sh
make_players() {
  configure asan -DFLUVIA_TESTS=ON -DFLUVIA_PLAYERS=ON && build asan
}
make_recipes() {
  configure release -DFLUVIA_TESTS=ON -DFLUVIA_PLAYERS=ON &&
    build release --target gstfluvia example_ffmpeg example_mpv media_server
}
check "packages of the players" scripts/install-packages players
check "build with the players" make_players
run_ctest asan -L players
check "manual page of fluvia-mount" scripts/checks/manual build/asan/tools/fluvia-mount
check "build of the recipes" make_recipes
FLUVIA_MEDIA=$PWD/build/asan/media \
  check "recipes of the README" tests/players/players.sh "$PWD/build/release" readme_recipes
