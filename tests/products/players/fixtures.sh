#!/bin/bash
# Makes the media files of the player tests, 20 seconds each, in the given folder.
#
# They are the same on every machine with one FFmpeg version: a moving test picture and a tone, coded
# bit-exact. One coded stream is put into all containers that accept it.
set -euo pipefail
out=$1
mkdir -p "$out"
if [ -e "$out/complete-2" ]; then
  exit 0
fi
run() {
  ffmpeg -nostdin -hide_banner -loglevel error -y "$@"
}
exact=(-fflags +bitexact -flags:v +bitexact -flags:a +bitexact)
run -f lavfi -i "testsrc2=size=320x180:rate=25:duration=20" \
  -f lavfi -i "sine=frequency=330:beep_factor=4:sample_rate=44100:duration=20" \
  -map 0:v -map 1:a -c:v libx264 -preset veryfast -threads 1 -g 50 -b:v 1000k -pix_fmt yuv420p \
  -c:a aac -b:a 96k -ac 2 "${exact[@]}" "$out/film.mkv"
run -i "$out/film.mkv" -c copy "${exact[@]}" "$out/film.mp4"
run -i "$out/film.mp4" -c copy -movflags +faststart "${exact[@]}" "$out/front.mp4"
run -i "$out/film.mkv" -c copy -movflags frag_keyframe+empty_moov+default_base_moof "${exact[@]}" \
  "$out/fragmented.mp4"
run -i "$out/film.mkv" -c copy "${exact[@]}" "$out/film.ts"
run -i "$out/film.mkv" -vn -c:a libmp3lame -b:a 128k "${exact[@]}" "$out/sound.mp3"
run -i "$out/film.mkv" -vn -c:a flac "${exact[@]}" "$out/sound.flac"
touch "$out/complete-2"
