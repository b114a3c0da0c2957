# shellcheck shell=bash
# clang-tidy in the tools too; ./test takes it to the library only.
check "configure clang" configure clang -DFLUVIA_TESTS=ON
check "clang-tidy with the tools" scripts/checks/tidy build/clang api util webs tools
