# shellcheck shell=bash
# 100,000 random calls over HTTP against connections that break.
make_http_tests() {
  configure release -DFLUVIA_TESTS=ON && build release --target http_tests
}
check "build of the HTTP tests" make_http_tests
export FLUVIA_MODEL_FACTOR=10
run_ctest release -R HttpModel
unset FLUVIA_MODEL_FACTOR
