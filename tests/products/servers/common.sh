# shellcheck shell=bash
# Shared by the tests against real servers; to be sourced from the root of the repository. Each runs its
# server in the foreground on loopback, with all its files in a folder that is removed at the end.
set -euo pipefail
. scripts/nginx.sh

fluvia=${FLUVIA:-build/release/tools/fluvia}
fluvia=$(realpath "$fluvia")
player=$(dirname "$fluvia")/../tests/server_player
name=$(basename "$0")
folder=$(mktemp -d)
www=$folder/www
mkdir "$www"
servers=()

end_servers() {
  local pid
  for pid in "${servers[@]}"; do
    kill "$pid" 2>/dev/null || true
  done
  wait
  rm -rf "$folder"
}
trap end_servers EXIT
trap 'exit 130' INT TERM

fail() {
  echo "$name: $*" >&2
  tail -n 20 "$folder"/*.log >&2 2>/dev/null || true
  exit 1
}

# serve PORT COMMAND...: starts a server and waits until it listens.
serve() {
  local port=$1
  shift
  "$@" >"$folder/server.log" 2>&1 &
  servers+=($!)
  await_port "$port" "$!" || fail "does not listen: $*"
}

# make_media FILE BYTES: bytes without a pattern, the same in every run.
make_media() {
  openssl enc -aes-128-ctr -K 00112233445566778899aabbccddeeff -iv 00000000000000000000000000000000 \
    </dev/zero 2>/dev/null | head -c "$2" >"$1" || true
  [ "$(stat -c %s "$1")" -eq "$2" ] || fail "cannot make $1"
}

# same URL FILE [options]: every byte must equal the file's, read from beginning to end, with small and large
# reads and buffers, and from an offset.
same() {
  local url=$1 file=$2
  shift 2
  local way
  for way in "" "--read-size 1000 --buffer 64K" "--read-size 1M --buffer 96K" "--async"; do
    # shellcheck disable=SC2086  # the words are meant to be split
    "$fluvia" cat "$url" $way "$@" >"$folder/out" || fail "cannot read $url ($way)"
    cmp "$file" "$folder/out" || fail "other bytes from $url ($way)"
  done
}

# part URL FILE OFFSET LENGTH
part() {
  "$fluvia" cat "$1" --offset "$3" --length "$4" >"$folder/out" || fail "cannot read $1 at $3"
  cmp <(tail -c "+$(($3 + 1))" "$2" | head -c "$4") "$folder/out" || fail "other bytes of $1 at $3"
}

# seeks URL COUNT [options]: random seeks and reads must equal one sequential reading.
seeks() {
  "$fluvia" check "$1" --count "$2" "${@:3}" >"$folder/out" 2>&1 || fail "check: $(cat "$folder/out")"
}

# plays URL FILE [CA]: reads the file as a player does. On loopback no read has to wait, so a read of seconds
# means that its reader was forgotten; a shorter one may be a busy machine.
plays() {
  timeout 60 "$player" "$1" "$2" "${3:-}" >"$folder/out" 2>"$folder/err" ||
    fail "the player fails: $(grep -v "^[*<>\[]" "$folder/err" | tail -n 1)"
  local longest
  for longest in $(grep -oE "[0-9]+" "$folder/out"); do
    [ "$longest" -lt 2500 ] || fail "a read waited: $(cat "$folder/out") ms"
  done
}

# make_certificate NAME: makes cert.pem and key.pem in the folder, for that host name.
make_certificate() {
  openssl req -x509 -newkey rsa:2048 -nodes -keyout "$folder/key.pem" -out "$folder/cert.pem" \
    -days 2 -subj "/CN=$1" -addext "subjectAltName=DNS:$1" 2>"$folder/openssl.log" ||
    fail "no certificate"
}

# restarted URL FILE COMMAND...: every byte must arrive although the last started server is killed in the
# middle. COMMAND restarts it once the reader has met the outage.
restarted() {
  local url=$1 file=$2 reader
  shift 2
  "$fluvia" cat --speed 4000000 "$url" >"$folder/out" 2>"$folder/err" &
  reader=$!
  servers+=("$reader")
  local tries=200
  while [ "$(stat -c %s "$folder/out")" -lt 2000000 ]; do
    tries=$((tries - 1))
    [ "$tries" -gt 0 ] || fail "no bytes before the restart"
    sleep 0.05
  done
  kill -KILL "${servers[-2]}"
  wait "${servers[-2]}" 2>/dev/null || true
  tries=400
  until grep -q "trying again" "$folder/err"; do
    tries=$((tries - 1))
    [ "$tries" -gt 0 ] || fail "the reader met no outage"
    sleep 0.05
  done
  "$@"
  wait "$reader" || fail "does not survive a restart: $(tail -n 1 "$folder/err")"
  cmp "$file" "$folder/out" || fail "other bytes after a restart"
}

# fact URL KEY: a value of info, as JSON.
fact() {
  "$fluvia" info --json "$1" "${@:3}" | python3 -c 'import json,sys; print(json.load(sys.stdin)[sys.argv[1]])' "$2"
}

# tells URL KEY VALUE [options]
tells() {
  local value
  value=$(fact "$1" "$2" "${@:4}") || fail "no facts about $1"
  [ "$value" = "$3" ] || fail "$2 of $1 is \"$value\", not \"$3\""
}

# fails CODE TEXT COMMAND...: it must end with that code and print that text.
fails() {
  local code=0
  "${@:3}" >"$folder/out" 2>"$folder/err" || code=$?
  [ "$code" -eq "$1" ] || fail "exit code $code, not $1, from ${*:3}: $(cat "$folder/err")"
  grep -qF -- "$2" "$folder/err" || fail "does not say \"$2\" but: $(cat "$folder/err")"
}
