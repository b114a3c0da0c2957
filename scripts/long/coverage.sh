# shellcheck shell=bash
# How much of api/, util/ and webs/ the tests reach: 95 of 100 lines, 85 of 100 branches. Leaves the tables of
# docs/coverage.md and the unreached lines in build/coverage.
check "packages of coverage" scripts/install-dependencies coverage
make_coverage() {
  configure coverage -DFLUVIA_TESTS=ON -DFLUVIA_PLAYERS=OFF &&
    build coverage --target util_tests webs_tests api_tests http_tests process_tests
}
check "build coverage" make_coverage
rm -rf build/coverage/profiles
LLVM_PROFILE_FILE=$PWD/build/coverage/profiles/%4m.profraw \
  run_ctest coverage -L '^(util|webs|api|http|process)_tests$'
check "coverage of lines and branches" scripts/coverage --least 95 85
