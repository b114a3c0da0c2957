# shellcheck shell=bash
# Every test in a Clang build without optimisation: the ordinary run only builds it.
make_clang() {
  configure clang -DFLUVIA_TESTS=ON && build clang
}
check "build clang" make_clang
run_ctest clang -LE players
