# shellcheck shell=bash
# Servers of node, which npm fetches: express and http-server.
make_node() {
  command -v npm >/dev/null || scripts/install-dependencies node
  npm install --prefix build/node --no-audit --no-fund --loglevel=error express@4 http-server@14
}

make_player() {
  configure release -DFLUVIA_TESTS=ON && build release --target fluvia server_player
}

check "packages of node" make_node
check "build of the player" make_player
NODE_MODULES=$PWD/build/node/node_modules check "servers of node" timeout --kill-after=10 300 \
  tests/products/servers/node.sh
