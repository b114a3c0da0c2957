# shellcheck shell=bash
# A booted 32-bit ARM system (scripts/arm-box): the C interface's tests and models, servers, files
# beyond 4 GiB, what user emulation cannot run; stress and players for FLUVIA_BOX_SECONDS each, else
# ten minutes; a player in less and less memory. Leaves build/box-*.log and build/box/soak.csv.
BOX_TESTS=(util_tests webs_tests api_tests http_tests process_tests ordeal_stress ordeal_soak)

make_for_box() {
  scripts/make-debs armhf &&
    configure armv7 -DFLUVIA_BENCH=ON && build armv7 --target bench-ours bench-make-file &&
    configure armv7-ubsan && build armv7-ubsan --target "${BOX_TESTS[@]}"
}

# in_box NAME SECONDS PROGRAM [ARGUMENT...]: shows what the program says.
in_box() {
  local log=build/box-$1.log limit=$2
  shift 2
  mkdir -p build/box
  scripts/arm-box --limit "$limit" --given build/box "$@" 2>&1 | tee "$log"
  return "${PIPESTATUS[0]}"
}

box_seconds=${FLUVIA_BOX_SECONDS:-600}
check "packages of the box" scripts/install-dependencies box arm
check "box" scripts/box/make
check "builds for the box" make_for_box
check "box: interface, servers" in_box interface 5400 tests/products/box/interface
check "box: stress, players" in_box ordeal $((box_seconds * 3 + 600)) tests/products/box/ordeal "$box_seconds"
check "box: little memory" in_box memory 1800 tests/products/box/memory
