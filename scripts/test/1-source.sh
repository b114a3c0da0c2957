# shellcheck shell=bash
# Checks of the text of the sources; none needs a build.
check "clang-format" scripts/checks/format
check "include direction" scripts/checks/includes
check "header in C and C++" scripts/checks/header
behind "cppcheck" scripts/checks/cppcheck
check "pages of the classes" scripts/checks/internals
check "links of the documents" scripts/checks/links
check "log lines" scripts/checks/log-lines
check "texts of the trace" scripts/checks/trace-words
check "commits of the figures" scripts/checks/figures
scripts/checks/figures --notes
check "counting of results" scripts/checks/counting
check "mutation table" tests/ordeal/mutation/mutate.py --check
await "cppcheck"
