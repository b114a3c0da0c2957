# shellcheck shell=bash
# Checks of what the builds made.
check "exported names" scripts/checks/exports build/release/libfluviafs.so
check "programs of each standard" scripts/checks/linked build/release/libfluviafs.so
check "installed package" scripts/checks/installation build/release
check "manual page of fluvia" scripts/checks/program-page build/release/tools/fluvia
# The model, in its small size, has a part of its own that awaits it.
behind "model of restarts" tests/ordeal/model/check.sh
await "clang-tidy"
