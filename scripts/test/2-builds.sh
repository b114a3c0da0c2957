# shellcheck shell=bash
# Every build, with its tests; those with players are a part of their own. Tests mostly wait, and builds
# only compute: behind the tests of one build the next one is made. ThreadSanitizer's build is Clang's, so
# that Clang's warnings and its analysis of locks need no build of their own. clang-tidy is awaited by the
# part of the product.
. scripts/sanitizers.sh

# The packages of the players may just be arriving.
make_build() {
  configure "$1" -DFLUVIA_TESTS=ON -DFLUVIA_PLAYERS=OFF && build "$1"
}

check "build release" make_build release
behind "build asan" make_build asan
run_ctest release -LE players
await "build asan"
behind "build tsan" make_build tsan
# Under sanitizers the models and random trees are shortened.
FLUVIA_MODEL_FACTOR=0.4 run_ctest asan -LE players
await "build tsan"
behind "clang-tidy" scripts/checks/tidy build/tsan api util webs
# ThreadSanitizer does not run what one thread does alone: trees and their parsers, the page of a trace, and
# two reads of so many bytes that they take half a minute under it.
ALONE='Part/TreeNode|TreeNode|TreeLimit|JSONParser|Trace(Page|Story)|LogReader|cli\.tree_'
ALONE+='|FileApiSparseContent\.OneGibibyteInOneCall|Exhaustion\.ReadsOfOneByteOverManyMegabytes'
FLUVIA_MODEL_FACTOR=0.4 run_ctest tsan -LE players -E "^($ALONE)"
