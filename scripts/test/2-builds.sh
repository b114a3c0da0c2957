# shellcheck shell=bash
# Every build, with its tests; those with players are a part of their own. Tests mostly wait, and builds
# only compute: behind the tests of one build the next one is made. Clang is there for its warnings; its
# tests are among the long parts. clang-tidy is awaited by the part of the product.
. scripts/sanitizers.sh

make_build() {
  configure "$1" -DFLUVIA_TESTS=ON && build "$1"
}

check "build release" make_build release
behind "build clang" make_build clang
run_ctest release -LE players
await "build clang"
check "build asan" make_build asan
behind "build tsan" make_build tsan
run_ctest asan -LE players
await "build tsan"
behind "clang-tidy" scripts/checks/tidy build/clang
# Trees and their parsers belong to one thread: there is nothing for ThreadSanitizer to see. Under it the
# models take ten times as long.
FLUVIA_MODEL_FACTOR=0.4 run_ctest tsan -LE players -E '^(Part/TreeNode|TreeNode|TreeLimitJSON|TreeLimitXML|JSONParser)'
