# shellcheck shell=bash
# Shared by ./run, ./test and the scripts they call; to be sourced from the root of the repository.

JOBS=$(nproc)
# A compiler cache inside the build tree works for every user and is removed with it. A cache that the user
# has set up is kept.
export CCACHE_DIR="${CCACHE_DIR:-$PWD/build/.ccache}"
export CCACHE_COMPILERCHECK=content
# Takes a file's includes from the compiler, which lists them anyway. Otherwise every file that the cache
# lacks is preprocessed first, a quarter of the time of a small one.
export CCACHE_DEPEND=1

# quietly COMMAND...: shows its output only if it fails.
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
