#!/bin/bash
# Streams with a cut, a silence and seeks, draws the log, and checks the page in a headless browser, light and
# dark; trace.sh BUILD [FOLDER] keeps the log, the page and the pictures in FOLDER.
set -euo pipefail
cd "$(dirname "$(realpath "$0")")/../../.."
tree=$(realpath "$1")
folder=$(mktemp -d)
keep=${2:-}
running=""
end() {
  [ -z "$running" ] || kill -KILL -- "-$running" 2>/dev/null || true
  rm -rf "$folder"
}
trap end EXIT
trap 'exit 130' INT TERM

# browse OUTPUT ARGUMENTS...: a browser with its own profile, which contacts no host outside. It has its own
# process group, so that all its children can be stopped.
browse() {
  local output=$1
  shift
  mkdir "$folder/home"
  HOME=$folder/home XDG_CONFIG_HOME=$folder/home XDG_CACHE_HOME=$folder/home setsid timeout 60 chromium \
    --headless --no-sandbox --disable-gpu --disable-quic --no-first-run --disable-dev-shm-usage \
    --disable-background-networking --disable-component-update --disable-sync --disable-extensions \
    --host-resolver-rules='MAP * ~NOTFOUND' --user-data-dir="$folder/home/profile" \
    --hide-scrollbars --force-device-scale-factor=1 --window-size=1280,1300 "$@" \
    >"$output" 2>"$folder/browser.log" &
  running=$!
  wait "$running" || {
    cat "$folder/browser.log" >&2
    return 1
  }
  rm -rf "${folder:?}/home"
}

timeout 60 "$tree/tests/trace_scene" 2>"$folder/scene.log" >"$folder/scene.txt" || {
  echo "the scene went wrong: $(tail -n 1 "$folder/scene.txt")" >&2
  exit 1
}
"$tree/tools/fluvia" trace "$folder/scene.log" -o "$folder/scene.html"
for theme in light dark; do
  browse "$folder/$theme.html" --dump-dom --screenshot="$folder/$theme.png" \
    "file://$folder/scene.html#$theme"
done
if [ -n "$keep" ]; then
  mkdir -p "$keep"
  cp "$folder"/scene.* "$folder"/*.png "$keep"
fi
python3 tests/products/tools/look.py "$folder"
