# shellcheck shell=bash
# clang-tidy with its static analyzer in the tools too; ./test lets that look through the library only.
check "configure clang" configure clang -DFLUVIA_TESTS=ON
check "clang-tidy, analyzer in the tools" scripts/checks/tidy build/clang --analyze-tools
