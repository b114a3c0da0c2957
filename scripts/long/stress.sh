# shellcheck shell=bash
# The stress for ten minutes under AddressSanitizer and ten under ThreadSanitizer.
. scripts/sanitizers.sh

make_stress() {
  configure "$1" -DFLUVIA_TESTS=ON && build "$1" --target ordeal_stress
}

long_stress() {
  set -o pipefail
  "build/$1/tests/ordeal/stress/ordeal_stress" --seconds "${FLUVIA_STRESS_SECONDS:-600}" |
    tee "build/$1/stress.log"
}

for preset in asan tsan; do
  check "build $preset" make_stress "$preset"
  check "stress $preset" long_stress "$preset"
done
