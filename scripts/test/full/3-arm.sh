# shellcheck shell=bash
# 32-bit ARM in an emulator: checks the device's library and transfers files with it. The build that the
# box takes its tests from must see unaligned words. The Debian packages are made behind this; the part of
# the packages awaits them.
. scripts/sanitizers.sh

# arm_server NAME: a test with a real server, its transfers by the emulated command line.
arm_server() {
  FLUVIA=build/armv7/emulated-fluvia timeout --kill-after=10 300 "tests/products/servers/$1"
}

make_packages() {
  # The root that the packages are tried in is made meanwhile: one waits for servers, the other computes.
  tests/products/packages/make-root &
  local root=$!
  scripts/make-debs
  local result=$?
  wait "$root" && [ "$result" -eq 0 ]
}

check "packages for the Debian packages" scripts/install-dependencies debs
check "ARM library" scripts/checks/arm build/armv7
check "ARM library, exported names" scripts/checks/exports build/armv7/libfluviafs.so
await "build armv7-ubsan"
check "ARM sanitizer sees alignment" scripts/checks/arm-sanitizer build/armv7-ubsan
behind "make the packages" make_packages
beside "ARM transfers, nginx" arm_server nginx
beside "ARM transfers, nginx with TLS" arm_server nginx-tls
beside "ARM transfers, large files" arm_server nginx-large
await "ARM transfers, nginx"
await "ARM transfers, nginx with TLS"
await "ARM transfers, large files"
