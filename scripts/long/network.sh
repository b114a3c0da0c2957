# shellcheck shell=bash
# A real network in a box of two network namespaces; what comes out is left in build/network.log.
set -o pipefail

make_fluvia() {
  configure release && build release --target fluvia fluviafs
}

scripts/install-packages network
check "build fluvia" make_fluvia
box_failed=0
tests/network/box.sh build/release/tools/fluvia build/release/libfluviafs.so | tee build/network.log || box_failed=1
cases_right=$(grep -c " right " build/network.log || true)
cases_wrong=$(grep -c " wrong " build/network.log || true)
# A box that dies fails, whatever its cases said until then; so does one in which no case was right.
if [ "$cases_wrong" -eq 0 ] && { [ "$box_failed" -ne 0 ] || [ "$cases_right" -eq 0 ]; }; then cases_wrong=1; fi
told "network in a box" "$cases_right" "$cases_wrong" "$(grep -c " skipped " build/network.log || true)"
