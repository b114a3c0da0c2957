# shellcheck shell=bash
# What a viewer notices over a long, slow link, beside FFmpeg's and GStreamer's own HTTP. The figures are left
# in build/player-figures; docs/players.md shows those of one such run.
. scripts/nginx.sh

make_measured_players() {
  configure release -DFLUVIA_TESTS=ON -DFLUVIA_PLAYERS=ON && build release
}

# copy_film NAME [options]: the film in another container.
copy_film() {
  local out=build/player-figures/media name=$1
  shift
  ffmpeg -nostdin -hide_banner -loglevel error -y -i "$out/film.mkv" -c copy "$@" "$out/$name"
}

# A minute of noise at 6 Mbit/s, larger than a buffer; MP4 with its index at the end, in front, and in
# fragments; HLS in pieces of six seconds.
make_measured_media() {
  local out=build/player-figures/media
  mkdir -p "$out/stream"
  [ ! -e "$out/complete-2" ] || return 0
  ffmpeg -nostdin -hide_banner -loglevel error -y \
    -f lavfi -i "testsrc2=size=640x360:rate=25:duration=60,noise=alls=30:allf=t:all_seed=1" \
    -f lavfi -i "sine=frequency=330:beep_factor=4:sample_rate=44100:duration=60" -map 0:v -map 1:a \
    -c:v libx264 -preset ultrafast -g 25 -b:v 6M -maxrate 6M -bufsize 6M -pix_fmt yuv420p \
    -c:a aac -b:a 96k -ac 2 "$out/film.mkv" &&
    copy_film film.mp4 && copy_film front.mp4 -movflags +faststart &&
    copy_film fragmented.mp4 -movflags frag_keyframe+empty_moov+default_base_moof && copy_film film.ts &&
    copy_film stream/film.m3u8 -f hls -hls_time 6 -hls_list_size 0 -hls_playlist_type vod &&
    touch "$out/complete-2"
}

measure_players() (
  local out=$PWD/build/player-figures server code=0
  server=$(mktemp -d)
  start_nginx "$server" "$out/media"
  export GST_REGISTRY=$PWD/build/release/gst-registry.bin
  build/release/tests/products/players/gst-frames "file://$out/media/film.mp4" >/dev/null || code=1
  if [ "$code" -eq 0 ]; then
    tests/products/players/measure.py run "$PWD/build/release" "$NGINX_PORT" "$server/access.log" \
      film.mp4 front.mp4 fragmented.mp4 film.mkv film.ts stream/film.m3u8 >"$out/players.csv" || code=1
  fi
  kill "$NGINX_PID"
  wait "$NGINX_PID" || true
  rm -rf "$server"
  [ "$code" -eq 0 ] && tests/products/players/measure.py table "$out/players.csv" >"$out/players.md" &&
    tests/products/players/measure.py picture "$out/players.csv" >"$out/players.svg"
)

# Half of it as HLS, in pieces of six seconds: some are larger than a buffer, none has all bytes.
make_measured_hls() {
  local out=build/player-figures/media
  [ ! -e "$out/hls/complete" ] || return 0
  mkdir -p "$out/hls"
  ffmpeg -nostdin -hide_banner -loglevel error -y -i "$out/film.mkv" -t 30 -c copy -f hls -hls_time 6 \
    -hls_list_size 0 -hls_playlist_type vod -hls_segment_filename "$out/hls/piece%02d.ts" \
    "$out/hls/film.m3u8" && touch "$out/hls/complete"
}

measure_hls() (
  local out=$PWD/build/player-figures plain tls code=0
  plain=$(mktemp -d)
  tls=$(mktemp -d)
  openssl req -x509 -newkey rsa:2048 -nodes -keyout "$tls/key.pem" -out "$tls/cert.pem" -days 2 \
    -subj /CN=127.0.0.1 -addext "subjectAltName=IP:127.0.0.1" 2>"$tls/openssl.log" || return 1
  start_nginx "$plain" "$out/media/hls" || return 1
  local plain_port=$NGINX_PORT plain_id=$NGINX_PID
  # Both write one log, whose requests are counted.
  ln -s "$plain/access.log" "$tls/access.log"
  NGINX_LISTEN=ssl start_nginx "$tls" "$out/media/hls" \
    "ssl_certificate $tls/cert.pem; ssl_certificate_key $tls/key.pem;" || code=1
  if [ "$code" -eq 0 ]; then
    tests/products/players/measure_hls.py run "$PWD/build/release" "$plain_port" "$NGINX_PORT" \
      "$plain/access.log" film.m3u8 "$tls/cert.pem" "${FLUVIA_ROUNDS:-3}" >"$out/hls.csv" || code=1
  fi
  kill "$plain_id" "$NGINX_PID"
  wait "$plain_id" "$NGINX_PID" || true
  rm -rf "$plain" "$tls"
  [ "$code" -eq 0 ] && tests/products/players/measure_hls.py table "$out/hls.csv" >"$out/hls.md"
)

check "packages of the players" scripts/install-dependencies players servers
check "build with the players" make_measured_players
check "media to measure with" make_measured_media
check "figures of the players" measure_players
check "HLS to measure with" make_measured_hls
check "figures of HLS" measure_hls
