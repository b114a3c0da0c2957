# shellcheck shell=bash
# What is thrown at the library beyond its tests, in short; scripts/long has the long forms. The model of
# restarts, in its small size, is searched behind it; its own part awaits it.
. scripts/sanitizers.sh

# The same rounds every time; the long form draws new ones.
stress() {
  timeout --kill-after=10 600 "build/$1/tests/ordeal/stress/ordeal_stress" --seed 1 --seconds 60
}

both_stresses() {
  stress asan &
  local asan=$!
  stress tsan
  local tsan_result=$?
  wait "$asan" && [ "$tsan_result" -eq 0 ]
}

behind "model of restarts" tests/ordeal/model/check.sh
check "fault matrix, our column" timeout --kill-after=10 600 \
  build/release/tests/ordeal/matrix/ordeal_matrix \
  ours=build/release/tests/ordeal/matrix/ordeal_matrix_ours
check "stress, ASan and TSan" both_stresses
