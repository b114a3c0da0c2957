# shellcheck shell=bash
# 32-bit ARM in an emulator: checks the device's library and transfers files with it. The build that the
# box takes its tests from must see unaligned words. Then the box itself begins; its own part awaits it.
. scripts/sanitizers.sh

# arm_server NAME: a test with a real server, its transfers by the emulated command line.
arm_server() {
  FLUVIA=build/armv7/emulated-fluvia timeout --kill-after=10 300 "tests/products/servers/$1"
}

check "ARM library" scripts/checks/arm build/armv7
check "ARM library, exported names" scripts/checks/exports build/armv7/libfluviafs.so
await "build armv7-ubsan"
check "ARM sanitizer sees alignment" scripts/checks/arm-sanitizer build/armv7-ubsan
await "make the packages"
# A booted 32-bit ARM system, with the packages and tests that were built before: what user emulation under
# this machine's kernel cannot show. What is longer is in scripts/long/box.sh.
beside "box: install, transfer, exit" scripts/arm-box --limit 900 tests/products/box/short
beside "ARM transfers, nginx" arm_server nginx
beside "ARM transfers, nginx with TLS" arm_server nginx-tls
beside "ARM transfers, large files" arm_server nginx-large
await "ARM transfers, nginx"
await "ARM transfers, nginx with TLS"
await "ARM transfers, large files"
