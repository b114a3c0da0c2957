#!/bin/bash
# Adaptive streams through GStreamer; adaptive_gst.sh BUILD TEST runs one. BUILD is the folder of the
# build.
#
# gst_adaptive_KIND      every frame of that kind (hls_fixtures.sh), as the same player decodes it from
#                        the local files; the server sees no other client than the library
# gst_adaptive_https     the same of one kind, with the certificate checked
# gst_adaptive_drops     the same of some, while every connection ends early
# gst_adaptive_faults    the same of some, with pieces and playlists that are missing or cut once
# gst_adaptive_restart   the same, while the server goes and comes back
# gst_adaptive_rates     the link's rate changes: every picture is one of the three, in its place
# gst_adaptive_live      a live stream: its last frames, all of them
# gst_adaptive_live_long the same for 40 seconds
# gst_adaptive_absolute  names with a host, with a raised rank
# gst_adaptive_redirects playlists that are redirected, with their pieces beside the addresses asked for
# gst_adaptive_live_redirected  the same of a live stream
#
# FLUVIA_MEDIA is the folder of the media, when it is not BUILD/media.
set -euo pipefail

build=$1
name=$2
here=$(dirname "$(realpath "$0")")
media=${FLUVIA_MEDIA:-$build/media}/hls
agent=fluvia-players/1
# GStreamer keeps a list of its elements; the user's own list must not change.
export GST_REGISTRY=$build/gst-registry.bin
# The libraries of players keep memory until the process ends.
export ASAN_OPTIONS=${ASAN_OPTIONS:-}:detect_leaks=0

dir=$(mktemp -d)
nginx_id=""
live_id=""
server_id=""
link_id=""
ca=""
cleanup() {
  local id
  for id in $nginx_id $live_id; do
    kill "$id" 2>/dev/null || true
    wait "$id" || true
  done
  if [ -n "$link_id" ]; then
    exec 5>&-
    wait "$link_id" || true
  fi
  if [ -n "$server_id" ]; then
    exec 8>&-
    wait "$server_id" || true
  fi
  rm -rf "$dir"
}
trap cleanup EXIT
cd "$dir"

fail() {
  echo "$name: $*" >&2
  exit 1
}

# shellcheck source=/dev/null
. "$here/served.sh"

# serve_with_faults [options of media-server]: serves the folder of all kinds at $root.
serve_with_faults() {
  mkfifo input address
  "$build/tests/products/players/media-server" "$@" "$media" <input >address 2>server.log &
  server_id=$!
  exec 8>input 7<address
  read -r -t 60 root <&7 || fail "the server does not start: $(cat server.log)"
  root=$root/
}

frames() {
  "$build/tests/products/players/gst-frames" "$@"
}

# ours URI: writes the frames that GStreamer decodes from a name of the library to the file got.
ours() {
  frames --plugin "$build/plugins/gstreamer/libgstfluvia.so" ${ca:+--ca "$ca"} \
    --user-agent "$agent" "fluvia+$1" >got 2>errors || fail "$1: $(tail -5 errors)"
}

# The playlist of a kind.
playlist_of() {
  case $1 in
    dash*) echo "$1/film.mpd" ;;
    *) echo "$1/film.m3u8" ;;
  esac
}

# local_frames PLAYLIST: writes the frames that GStreamer decodes from the local files to the file expected.
local_frames() {
  frames "file://$media/$1" >expected 2>errors || fail "$1 from the files: $(tail -5 errors)"
  [ "$(grep -c '^video ' expected)" -ge 500 ] || fail "$1 has not 500 pictures but $(grep -c '^video ' expected)"
}

# same_frames KIND: the frames over $root must equal those from the files.
same_frames() {
  local list
  list=$(playlist_of "$1")
  local_frames "$list"
  ours "$root$list"
  cmp got expected || fail "$list: other frames than from the files"
}

kind() {
  serve_folder "$media"
  same_frames "$1"
  check_agents 2
}

https() {
  make_certificate
  serve_folder "$media"
  same_frames fmp4
  check_agents 12
}

drops() {
  local each
  serve_with_faults --drop 100000
  for each in ts fmp4bytes dashlist; do same_frames "$each"; done
}

faults() {
  serve_with_faults --missing-once ts/piece03.ts --cut-once ts/piece07.ts --cut-once ts/film.m3u8 \
    --cut-once aes/key.ts --cut-once fmp4/begin.mp4 --cut-once bytes/film.ts --cut-once dash/film.mpd
  local each
  for each in ts aes fmp4 bytes dash; do same_frames "$each"; done
}

restart() {
  local player code=0
  serve_folder "$media" "limit_rate 400k;"
  local_frames ts/film.m3u8
  frames --plugin "$build/plugins/gstreamer/libgstfluvia.so" --user-agent "$agent" \
    "fluvia+${root}ts/film.m3u8" >got 2>errors &
  player=$!
  await 60 "it does not begin" has_sent 900000
  stop_nginx
  await 60 "it does not notice" grep -q "trying again" errors
  restart_nginx
  wait "$player" || code=$?
  [ "$code" -eq 0 ] || fail "exit code $code: $(tail -5 errors)"
  cmp got expected || fail "other frames than from the files"
  check_agents 11
}

# lengthen RATE: puts a link of that many bytes a second before the server; write another rate to 5 to change
# it.
lengthen() {
  local port
  mkfifo link-input link-port
  "$build/tests/products/players/slow-link" "$NGINX_PORT" 20 "$1" <link-input >link-port &
  link_id=$!
  exec 5>link-input 4<link-port
  read -r -t 60 port <&4 || fail "the link does not start"
  root=http://127.0.0.1:$port/
}

# True if so many pieces of pictures were served; the server logs a piece after sending it.
has_given() {
  [ "$(grep -c 'rate[0-9]-[0-9]*\.ts' nginx/access.log)" -ge "$1" ]
}

# Prints the rate of each piece in the log.
rates_of_log() {
  sed -n 's|.*/rate\([0-9]\)-\([0-9]*\)\.ts .*|\1 \2|p' nginx/access.log
}

rates() {
  local player code=0 rate
  for rate in 0 1 2; do
    local_frames "rates/rate$rate.m3u8"
    grep '^video ' expected >"expected.$rate"
  done
  serve_folder "$media"
  lengthen 100000
  frames --plugin "$build/plugins/gstreamer/libgstfluvia.so" --user-agent "$agent" \
    "fluvia+${root}rates/master.m3u8" >got 2>errors &
  player=$!
  await 60 "the first pieces do not come" has_given 3
  echo 0 >&5
  await 60 "the next pieces do not come" has_given 6
  echo 400000 >&5
  wait "$player" || code=$?
  [ "$code" -eq 0 ] || fail "exit code $code: $(tail -5 errors)"
  [ "$(grep -c '^video ' got)" -eq "$(wc -l <expected.0)" ] || fail "$(grep -c '^video ' got) pictures"
  # Each picture must appear at its time, as in one of the rates.
  paste -d ' ' expected.0 expected.1 expected.2 <(grep '^video ' got) >all
  awk '$2 != $11 || ($12 != $3 && $12 != $6 && $12 != $9) { bad = 1; print "picture " NR ": " $0 }
    END { exit bad }' all >wrong || fail "$(head -3 wrong)"
  rates_of_log >had
  [ "$(cut -d ' ' -f 1 had | sort -u | wc -l)" -ge 2 ] || fail "the rate never changed: $(cat had)"
  check_agents 12
}

# live PIECES [options of live_hls.py]: plays a live stream to its end. The pictures must be those of the
# film, of at least so many pieces, except for the last piece, which the demuxer of GStreamer leaves out.
live() {
  local pieces=$1
  shift
  local_frames ts/film.m3u8
  begin_live "$media/ts/film.m3u8" "$@"
  ours "$root${live_folder:-}live.m3u8"
  sed -n 's/^video .* //p' got >played
  case "$*" in *--rounds*) cat expected expected ;; *) cat expected ;; esac | sed -n 's/^video .* //p' >whole
  [ "$(wc -l <played)" -ge $((50 * pieces)) ] || fail "only $(wc -l <played) pictures"
  cmp played <(head -n -50 whole | tail -n "$(wc -l <played)") || fail "other pictures"
  check_agents $((pieces + 2))
}

# Every request for the playlist goes to the address that was asked for, and is redirected from there.
live_redirected() {
  lead_live_away
  live 3 --first 5
  [ "$(count_answers 302)" -ge 3 ] || fail "only $(count_answers 302) requests were redirected"
}

# In every way, itself or by a playlist that names it.
redirects() {
  local code
  serve_redirected "$media" 301 302 303 307 308 chain
  local_frames ts/film.m3u8
  for code in 301 302 303 307 308 chain; do
    ours "$root$code/ts/master.m3u8"
    cmp got expected || fail "$code: other frames than from the files"
  done
  ours "${root}302/ts/film.m3u8"
  cmp got expected || fail "other frames than from the files"
  # Two playlists a time, each redirected.
  check_agents 98
  [ "$(count_answers 302)" -ge 3 ] || fail "only $(count_answers 302) requests were redirected with 302"
  [ "$(count_answers 307)" -ge 4 ] || fail "only $(count_answers 307) requests were redirected with 307"
}

# The library is the source of all http here, since its rank is the highest.
absolute() {
  mkdir www
  cp -r "$media/ts" www
  serve_folder "$dir/www"
  sed "s|@ROOT@|${root}ts|" www/ts/absolute.m3u8.in >www/absolute.m3u8
  local_frames ts/film.m3u8
  frames --plugin "$build/plugins/gstreamer/libgstfluvia.so" --prefer \
    --user-agent "$agent" "${root}absolute.m3u8" >got 2>errors || fail "$(tail -5 errors)"
  cmp got expected || fail "other frames than from the files"
  check_agents 11
}

test=${name#gst_adaptive_}
case $test in
  https | drops | faults | restart | rates | absolute | redirects | live_redirected) "$test" ;;
  live) live 3 --first 5 ;;
  # 40 seconds, with a window of 6.
  live_long) live 18 --rounds 2 ;;
  *) kind "$test" ;;
esac
