# shellcheck shell=bash
# Real media through real players, with AddressSanitizer in what is ours.
. scripts/sanitizers.sh
make_players() {
  configure asan -DFLUVIA_TESTS=ON -DFLUVIA_PLAYERS=ON && build asan
}
check "packages of the players" scripts/install-packages players
check "build with the players" make_players
run_ctest asan -L players
