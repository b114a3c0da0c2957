#!/bin/bash
# Makes adaptive media of a film: hls_fixtures.sh FILM FOLDER. FILM is the film.mkv of fixtures.sh.
#
# Each stands in a folder of its own, 20 seconds in pieces of 2, and names its pieces relatively:
#
#   ts/film.m3u8        HLS of MPEG-TS
#   fmp4/film.m3u8      HLS of fragmented MP4, with an initialisation piece
#   bytes/film.m3u8     HLS of one MPEG-TS file, in byte ranges
#   fmp4bytes/film.m3u8 HLS of one fragmented MP4 file, in byte ranges, its initialisation too
#   aes/film.m3u8       HLS of MPEG-TS, encrypted with AES-128
#   rates/master.m3u8   three rates of pictures (160x90, 320x180, 640x360) with the same sound
#   dash/film.mpd       DASH by a template: a file a piece, pictures and sound apart
#   dashlist/film.mpd   DASH of one file for pictures and one for sound, in byte ranges
#   ts/absolute.m3u8.in the playlist of ts/ with @ROOT@/ before each name
#
# The live one is made of ts/ by live_hls.py. To be sourced for one of the functions, or run for all.
hls_run() {
  ffmpeg -nostdin -hide_banner -loglevel error -y "$@"
}

# Options of all HLS: whole, pieces of two seconds, cut at the film's key pictures.
hls_options=(-f hls -hls_time 2 -hls_list_size 0 -hls_playlist_type vod)

make_hls_ts() {
  mkdir -p "$2/ts"
  hls_run -i "$1" -c copy "${hls_options[@]}" -hls_segment_filename "$2/ts/piece%02d.ts" "$2/ts/film.m3u8"
  sed 's|^piece|@ROOT@/piece|' "$2/ts/film.m3u8" >"$2/ts/absolute.m3u8.in"
}

make_hls_fmp4() {
  mkdir -p "$2/fmp4"
  hls_run -i "$1" -c copy "${hls_options[@]}" -hls_segment_type fmp4 -hls_fmp4_init_filename begin.mp4 \
    -hls_segment_filename "$2/fmp4/piece%02d.m4s" "$2/fmp4/film.m3u8"
}

make_hls_bytes() {
  mkdir -p "$2/bytes"
  hls_run -i "$1" -c copy "${hls_options[@]}" -hls_flags single_file \
    -hls_segment_filename "$2/bytes/film.ts" "$2/bytes/film.m3u8"
}

make_hls_fmp4_bytes() {
  mkdir -p "$2/fmp4bytes"
  hls_run -i "$1" -c copy "${hls_options[@]}" -hls_flags single_file -hls_segment_type fmp4 \
    -hls_segment_filename "$2/fmp4bytes/film.mp4" "$2/fmp4bytes/film.m3u8"
}

# The key is named like a medium: FFmpeg opens no other name beside a local playlist.
make_hls_aes() {
  mkdir -p "$2/aes"
  printf '0123456789abcdef' >"$2/aes/key.ts"
  printf '%s\n' key.ts "$2/aes/key.ts" >"$2/aes/key.info"
  hls_run -i "$1" -c copy "${hls_options[@]}" -hls_key_info_file "$2/aes/key.info" \
    -hls_segment_filename "$2/aes/piece%02d.ts" "$2/aes/film.m3u8"
}

make_hls_rates() {
  mkdir -p "$2/rates"
  hls_run -i "$1" -filter_complex "[0:v]split=3[a][b][c];[a]scale=160:90[low];[b]scale=320:180[mid];[c]scale=640:360[high]" \
    -map "[low]" -map 0:a -map "[mid]" -map 0:a -map "[high]" -map 0:a \
    -fps_mode passthrough -c:v libx264 -preset ultrafast -threads 1 -g 50 -sc_threshold 0 -pix_fmt yuv420p \
    -b:v:0 200k -b:v:1 800k -b:v:2 2400k -c:a copy "${hls_options[@]}" \
    -master_pl_name master.m3u8 -var_stream_map "v:0,a:0 v:1,a:1 v:2,a:2" \
    -hls_segment_filename "$2/rates/rate%v-%02d.ts" "$2/rates/rate%v.m3u8"
}

make_dash() {
  mkdir -p "$2/dash"
  hls_run -i "$1" -c copy -f dash -seg_duration 2 -use_timeline 0 -use_template 1 "$2/dash/film.mpd"
}

make_dash_list() {
  mkdir -p "$2/dashlist"
  hls_run -i "$1" -c copy -f dash -seg_duration 2 -single_file 1 "$2/dashlist/film.mpd"
}

make_adaptive_media() {
  [ ! -e "$2/complete" ] || return 0
  local kind
  for kind in hls_ts hls_fmp4 hls_bytes hls_fmp4_bytes hls_aes hls_rates dash dash_list; do
    "make_$kind" "$1" "$2"
  done
  touch "$2/complete"
}

if [ "${BASH_SOURCE[0]}" = "$0" ]; then
  set -euo pipefail
  make_adaptive_media "$1" "$2"
fi
