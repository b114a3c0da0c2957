# shellcheck shell=bash
# Every build, with its tests; those with players are a part of their own.
. scripts/sanitizers.sh

make_build() {
  configure "$1" -DFLUVIA_TESTS=ON && build "$1"
}

for preset in release clang asan tsan; do
  check "build $preset" make_build "$preset"
  run_ctest "$preset" -LE players
done
