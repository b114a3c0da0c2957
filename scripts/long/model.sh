# shellcheck shell=bash
# The model of restarts in every size; the counts are left in build/model.log.
set -o pipefail
mkdir -p build
if tests/ordeal/model/check.sh --all | tee build/model.log; then
  told "model of restarts" "$(wc -l <build/model.log)" 0 0
else
  told "model of restarts" 0 1 0
fi
