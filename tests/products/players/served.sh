# shellcheck shell=bash disable=SC2034,SC2154  # variables of the test's
# A server of the tests with players: nginx, its sent bytes, and its clients; to be sourced in the test's own
# folder ($dir), after fail(). $here is this folder, $agent the library's user agent.
# shellcheck disable=SC1091  # it is the one of the repository
. "$here/../../../scripts/nginx.sh"

# await SECONDS WHAT COMMAND...: waits until the command succeeds.
await() {
  local tries=$(($1 * 20)) what=$2
  shift 2
  until "$@"; do
    sleep 0.05
    tries=$((tries - 1))
    [ "$tries" -gt 0 ] || fail "$what: $(tail -5 errors 2>&1)"
  done
}

# The worker process of nginx.
nginx_worker() {
  read -r worker <"/proc/$nginx_id/task/$nginx_id/children"
  echo "$worker"
}

# has_sent BYTES: true if the worker process of nginx has sent so many.
has_sent() {
  [ "$(sed -n 's/^wchar: //p' "/proc/$(nginx_worker)/io")" -gt "$1" ]
}

# serve_folder FOLDER [LINES]: nginx serves it at $root; over https if the file cert.pem is here.
serve_folder() {
  local scheme=http lines=${2:-}
  mkdir nginx
  if [ -e cert.pem ]; then
    scheme=https
    NGINX_LISTEN=ssl
    lines="$lines ssl_certificate $dir/cert.pem; ssl_certificate_key $dir/key.pem;"
  fi
  start_nginx "$dir/nginx" "$1" "$lines" || fail "nginx does not start"
  nginx_id=$NGINX_PID
  root=$scheme://127.0.0.1:$NGINX_PORT/
}

make_certificate() {
  openssl req -x509 -newkey rsa:2048 -nodes -keyout key.pem -out cert.pem -days 2 -subj /CN=127.0.0.1 \
    -addext subjectAltName=IP:127.0.0.1 2>openssl.log || fail "no certificate: $(cat openssl.log)"
  ca=$dir/cert.pem
}

stop_nginx() {
  kill "$nginx_id"
  wait "$nginx_id" || true
  nginx_id=""
}

# restart_nginx: restarts it at the same address, with its current configuration.
restart_nginx() {
  nginx -p "$dir/nginx" -e "$dir/nginx/error.log" -c "$dir/nginx/nginx.conf" 2>nginx.out &
  nginx_id=$!
  await_port "$NGINX_PORT" "$nginx_id" || fail "nginx does not come back: $(cat nginx.out)"
}

# Stops nginx and checks its log: the library must have made every request.
check_agents() {
  local requests
  stop_nginx
  requests=$(wc -l <nginx/access.log)
  [ "$requests" -ge "$1" ] || fail "only $requests requests, not $1"
  awk -F'"' -v agent="$agent" '$6 != agent' nginx/access.log >others
  [ ! -s others ] || fail "not by the library: $(head -3 others)"
}

# lead_away CODE: lines by which nginx redirects every playlist below /CODE/ to the one below /there/ with that
# code; those below /chain/ with 307 to /303/, by a relative name.
lead_away() {
  local code=$1 target="/there/\$1"
  if [ "$1" = chain ]; then
    code=307
    target="../../303/\$1"
  fi
  echo "location ~ ^/$1/(.*[.]m3u8)\$ { absolute_redirect off; return $code $target; }"
}

# serve_redirected FOLDER CODE...: serves ts/ of FOLDER with playlists that are redirected in these ways. The
# pieces are beside the addresses that are asked for, below /CODE/; below /there/ are the playlists only.
serve_redirected() {
  local folder=$1 code lines=""
  shift
  mkdir -p www/there/ts
  cp "$folder/ts/film.m3u8" www/there/ts
  printf '%s\n' "#EXTM3U" "#EXT-X-STREAM-INF:BANDWIDTH=2000000" film.m3u8 >www/there/ts/master.m3u8
  for code in "$@"; do
    ln -s "$folder" "www/$code"
    lines="$lines $(lead_away "$code")"
  done
  serve_folder "$dir/www" "$lines"
}

# count_answers CODE: how many requests nginx has answered with that code, of those it has logged.
count_answers() {
  awk -F'"' -v code="$1" 'substr($3, 2, 3) == code { count++ } END { print count + 0 }' nginx/access.log
}

# begin_live PLAYLIST [options of live_hls.py]: a live stream of it in www/, at $live_rate bytes a second.
# $live_lines go into the server block of nginx.
begin_live() {
  local line
  mkdir www
  mkfifo began
  python3 "$here/live_hls.py" "$1" www "${@:2}" >began &
  live_id=$!
  exec 3<began
  read -r -t 60 line <&3 || fail "the live stream does not begin"
  [ "$line" = live ] || fail "the live stream says: $line"
  serve_folder "$dir/www" "limit_rate ${live_rate:-0}; ${live_lines:-}"
}

# lead_live_away: the same with a playlist that each request finds redirected: at 302/live.m3u8, with its
# pieces beside it.
lead_live_away() {
  live_lines="$(lead_away 302) location = /there/live.m3u8 { alias $dir/www/live.m3u8; }
    location ~ ^/302/(live[0-9]+[.]ts)\$ { alias $dir/www/\$1; }"
  live_folder=302/
}
