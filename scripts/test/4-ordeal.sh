# shellcheck shell=bash
# What is thrown at the library beyond its tests, in short; scripts/long has the long forms.
. scripts/sanitizers.sh

# The same rounds every time; the long form draws new ones.
stress() {
  timeout --kill-after=10 600 "build/$1/tests/ordeal/stress/ordeal_stress" --seed 1 --seconds 30
}

both_stresses() {
  stress asan &
  local asan=$!
  stress tsan
  local tsan_result=$?
  wait "$asan" && [ "$tsan_result" -eq 0 ]
}

# Whole stacks, also through libraries without frame pointers: a leak is judged by its stack.
torture() {
  ASAN_OPTIONS=$ASAN_OPTIONS:handle_abort=1:fast_unwind_on_malloc=0 \
    timeout --kill-after=10 600 build/asan/tests/ordeal/torture/torture --points 7 --jobs $((2 * JOBS))
}

beside "torture" torture
check "fault matrix, our column" timeout --kill-after=10 600 \
  build/release/tests/ordeal/matrix/ordeal_matrix \
  ours=build/release/tests/ordeal/matrix/ordeal_matrix_ours
check "stress, ASan and TSan" both_stresses
await "torture"
