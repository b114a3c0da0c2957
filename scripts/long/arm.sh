# shellcheck shell=bash
# The tests in user emulation of 32-bit ARM, in a build that checks alignment and other undefined
# behaviour. docs/arm.md has what is left out, and why.
. scripts/sanitizers.sh
ARM_TESTS=(util_tests webs_tests api_tests http_tests process_tests torture_tests out_of_memory_tests)

make_arm_tests() {
  scripts/arm-sysroot && configure armv7-ubsan && build armv7-ubsan --target "${ARM_TESTS[@]}"
}

check "packages for ARM" scripts/install-dependencies arm
check "build armv7-ubsan" make_arm_tests
check "ARM sanitizer sees alignment" scripts/checks/arm-sanitizer build/armv7-ubsan

# 510 threads with stacks of 8 MiB would take all 4 GiB of addresses.
stack_limit=$(ulimit -S -s)
ulimit -S -s 512
export FLUVIA_MODEL_FACTOR=${FLUVIA_MODEL_FACTOR:-1} FLUVIA_PATIENCE=5
# Left out: what starts its own program again, and what limits its own memory, neither of which the
# emulator can do.
run_ctest armv7-ubsan -L "^($(IFS='|' && echo "${ARM_TESTS[*]}"))\$" \
  -E '^HttpExitDeathTest\.|^Process\.BufferThatDoesNotFitIntoMemory'
unset FLUVIA_MODEL_FACTOR FLUVIA_PATIENCE
ulimit -S -s "$stack_limit"
