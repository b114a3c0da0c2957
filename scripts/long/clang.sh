# shellcheck shell=bash
# Every test in a build by Clang, without its optimiser: the ordinary run only builds it.
make_clang() {
  configure clang -DFLUVIA_TESTS=ON && build clang
}
check "build clang" make_clang
run_ctest clang -LE players
