# shellcheck shell=bash
# A real network in a box of two network namespaces; its output is left in build/network.log.
set -o pipefail

make_networked() {
  configure release -DFLUVIA_TESTS=ON -DFLUVIA_PLAYERS=ON && build release
}

scripts/install-dependencies network players
check "build with the players" make_networked
check "media and references" tests/products/players/players.sh "$PWD/build/release" make_media
if tests/ordeal/network/box.sh build/release | tee build/network.log; then
  told "network in a box" "$(grep -c " right " build/network.log || true)" 0 \
    "$(grep -c " skipped " build/network.log || true)"
else
  # A run that ends before it has judged has failed too.
  wrong=$(grep -c " wrong " build/network.log || true)
  told "network in a box" "$(grep -c " right " build/network.log || true)" $((wrong > 0 ? wrong : 1)) 0
fi
