# shellcheck shell=bash
# Switches each fix off and expects its test to fail; see tests/ordeal/mutation.
. scripts/sanitizers.sh
mkdir -p build
tests/ordeal/mutation/mutate.py | tee build/mutation.log || true
if [[ $(tail -n 1 build/mutation.log) =~ ^([0-9]+)\ caught,\ ([0-9]+)\ not\ caught$ ]]; then
  told "mutation" "${BASH_REMATCH[1]}" "${BASH_REMATCH[2]}" 0
else
  told "mutation" 0 1 0
fi
