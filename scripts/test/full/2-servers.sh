# shellcheck shell=bash
# The servers people use, each in a folder of its own on loopback. The tests that the box runs are built
# behind them; the part of ARM awaits that.
BOX_TESTS=(util_tests http_tests)
servers=()
for test in tests/products/servers/*; do
  case $test in
    *.sh | *.cpp) ;;
    *) servers+=("$(basename "$test")") ;;
  esac
done

await "build armv7"
behind "build armv7-ubsan" make_arm_build armv7-ubsan "${BOX_TESTS[@]}"
for server in "${servers[@]}"; do
  beside "server $server" timeout --kill-after=10 120 "tests/products/servers/$server"
done
for server in "${servers[@]}"; do
  await "server $server"
done
