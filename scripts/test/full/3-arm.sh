# shellcheck shell=bash
# 32-bit ARM in an emulator: what the device gets is looked at and transfers files; the tests run on a
# build that checks alignment and other undefined behaviour. docs/arm.md has what is left out, and why.
. scripts/sanitizers.sh

ARM_TESTS=(util_tests webs_tests api_tests http_tests process_tests torture_tests)

make_arm_build() {
  local preset=$1
  shift
  configure "$preset" && build "$preset" --target "$@"
}

# arm_server NAME: a test with a real server, its transfers by the emulated command line.
arm_server() {
  printf '#!/bin/sh\nexec %q %q "$@"\n' "$PWD/scripts/arm-run" "$PWD/build/armv7/tools/fluvia" \
    >build/armv7/emulated-fluvia
  chmod +x build/armv7/emulated-fluvia
  FLUVIA=build/armv7/emulated-fluvia timeout --kill-after=10 300 "tests/servers/$1"
}

check "packages for ARM" scripts/install-packages arm
check "libraries of ARM" scripts/arm-sysroot
check "build armv7" make_arm_build armv7 fluviafs fluvia
check "build armv7-ubsan" make_arm_build armv7-ubsan "${ARM_TESTS[@]}"
check "ARM library" scripts/checks/arm build/armv7
check "ARM library, exported names" scripts/checks/exports build/armv7/libfluviafs.so
check "ARM sanitizer sees alignment" scripts/checks/arm-sanitizer build/armv7-ubsan
check "ARM transfers, nginx" arm_server nginx
check "ARM transfers, nginx with TLS" arm_server nginx-tls
check "ARM transfers, large files" arm_server nginx-large

# 510 threads with stacks of 8 MiB would take all 4 GiB of addresses.
stack_limit=$(ulimit -S -s)
ulimit -S -s 512
export FLUVIA_MODEL_FACTOR=0.5 FLUVIA_PATIENCE=5
# Left out: what starts its own program again, and what limits its own memory, neither of which the
# emulator can do.
run_ctest armv7-ubsan -L "^($(IFS='|' && echo "${ARM_TESTS[*]}"))\$" \
  -E '^HttpExitDeathTest\.|^Process\.BufferThatDoesNotFitIntoMemory'
unset FLUVIA_MODEL_FACTOR FLUVIA_PATIENCE
ulimit -S -s "$stack_limit"
