# shellcheck shell=bash
# Options of the sanitizers; to be sourced from the root before ctest in build/asan or build/tsan.

export ASAN_OPTIONS=detect_leaks=1:strict_string_checks=1:detect_stack_use_after_return=1
export LSAN_OPTIONS=suppressions=$PWD/tests/lsan.supp:print_suppressions=0
export UBSAN_OPTIONS=print_stacktrace=1
# atexit_sleep_ms: how long a process with threads waits at its end for races. By default it is a second,
# which is most of the time of a thousand tests in separate processes.
export TSAN_OPTIONS=atexit_sleep_ms=100:halt_on_error=1:second_deadlock_stack=1:detect_deadlocks=1:suppressions=$PWD/tests/tsan.supp
