# shellcheck shell=bash
# How costs grow with handles, blocks and requests. Leaves build/growth.csv and build/growth.svg.
make_growth() {
  configure release -DFLUVIA_TESTS=ON && build release --target ordeal_growth
}

growth() {
  local result=0
  build/release/tests/ordeal/growth/ordeal_growth build/growth.csv | tee build/growth.log
  result=${PIPESTATUS[0]}
  tests/ordeal/draw.py growth build/growth.csv build/growth.svg
  return "$result"
}

check "build growth" make_growth
check "growth of cost" growth
