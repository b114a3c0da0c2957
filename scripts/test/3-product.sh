# shellcheck shell=bash
# Checks of what the builds made.
check "exported names" scripts/checks/exports build/release/libfluviafs.so
check "programs of each standard" scripts/checks/linked build/release/libfluviafs.so
check "installed package" scripts/checks/installation build/release
check "manual page of fluvia" scripts/checks/program-page build/release/tools/fluvia
await "clang-tidy"
