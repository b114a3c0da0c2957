# shellcheck shell=bash
# A booted 32-bit ARM system (scripts/arm-box): the C interface's tests and models, servers, files beyond 4
# GiB, and tests that user emulation cannot run; stress for FLUVIA_BOX_SECONDS, else ten minutes, players for
# twice as long; a player in less and less memory; the cost of playing. Leaves build/box-*.log, and in
# build/box soak.csv, playing.csv, playing.json and the pictures box-soak.svg and box-playing.svg.
BOX_TESTS=(webs_tests api_tests http_tests process_tests exhaustion_tests ordeal_stress ordeal_soak)

make_for_box() {
  scripts/make-debs armhf && scripts/arm-sysroot bench &&
    configure armv7-bench && build armv7-bench --target bench-{idle,ours,ring,ffmpeg,kernel,make-file} &&
    configure armv7-ubsan && build armv7-ubsan --target "${BOX_TESTS[@]}"
}

# in_box NAME SECONDS [options of scripts/arm-box] PROGRAM [ARGUMENT...]: shows the program's output.
in_box() {
  local log=build/box-$1.log limit=$2
  shift 2
  mkdir -p build/box
  scripts/arm-box --limit "$limit" --given build/box "$@" 2>&1 | tee "$log"
  return "${PIPESTATUS[0]}"
}

draw_box() {
  tests/ordeal/draw.py soak build/box/soak.csv build/box/box-soak.svg &&
    tests/ordeal/draw.py playing build/box/playing.csv build/box/box-playing.svg
}

box_seconds=${FLUVIA_BOX_SECONDS:-600}
check "packages of the box" scripts/install-dependencies box arm
check "box" scripts/box/make
check "builds for the box" make_for_box
check "box: interface, servers" in_box interface 5400 tests/products/box/interface
check "box: stress" in_box stress $((box_seconds * 2 + 600)) tests/products/box/stress "$box_seconds"
check "box: players" in_box soak $((box_seconds * 4 + 1200)) tests/products/box/soak $((box_seconds * 2))
check "box: little memory" in_box memory 1800 tests/products/box/memory
check "box: what playing costs" in_box playing 3600 --steady tests/products/box/playing 5 15
check "box: pictures" draw_box
