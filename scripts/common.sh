# shellcheck shell=bash
# Shared by ./run, ./test and the scripts they call; to be sourced from the root of the repository.

JOBS=$(nproc)
# A compiler cache inside the build tree works for everybody and leaves with it. Whoever has set up
# another keeps it.
export CCACHE_DIR="${CCACHE_DIR:-$PWD/build/.ccache}"
export CCACHE_COMPILERCHECK=content
# What a file includes is taken from the compiler, which says it anyway. Otherwise every file that the cache
# does not have is preprocessed first, a quarter of the time of a small one.
export CCACHE_DEPEND=1

# quietly COMMAND...: its output is shown only when it fails.
quietly() {
  mkdir -p build
  local log
  log=$(mktemp build/quietly.XXXXXX)
  if "$@" >"$log" 2>&1; then
    rm -f "$log"
    return 0
  fi
  cat "$log" >&2
  rm -f "$log"
  return 1
}

# configure PRESET [cmake options]
configure() {
  quietly cmake --preset "$@"
}

# build PRESET [cmake --build options]
build() {
  quietly cmake --build --preset "$@" -j "$JOBS"
}
