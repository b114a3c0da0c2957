# shellcheck shell=bash
# nginx on loopback, in the foreground of its own folder; to be sourced.

PATH=$PATH:/usr/sbin:/sbin

# free_port: a port of 127.0.0.1 without a listener.
free_port() {
  local port
  while :; do
    port=$((20000 + RANDOM % 20000))
    if ! (exec 3<>"/dev/tcp/127.0.0.1/$port") 2>/dev/null; then
      echo "$port"
      return
    fi
  done
}

# await_port PORT PID: waits until PID listens there. Fails if it ends first or after ten seconds.
await_port() {
  local tries=200
  while [ "$tries" -gt 0 ] && kill -0 "$2" 2>/dev/null; do
    if (exec 3<>"/dev/tcp/127.0.0.1/$1") 2>/dev/null; then
      return 0
    fi
    sleep 0.05
    tries=$((tries - 1))
  done
  return 1
}

# start_nginx FOLDER ROOT [LINES]: serves the files of ROOT, with its own files in FOLDER; LINES go into the
# server block, and those of the variable NGINX_HTTP above it. Sets NGINX_PORT and NGINX_PID.
start_nginx() {
  local folder=$1 root=$2 lines=${3:-} user=""
  [ "$(id -u)" -ne 0 ] || user="user root;"
  local attempt
  for attempt in 1 2 3; do
    NGINX_PORT=$(free_port)
    cat >"$folder/nginx.conf" <<CONF
$user
daemon off;
worker_processes 1;
pid $folder/nginx.pid;
error_log $folder/error.log;
events {}
http {
  access_log $folder/access.log;
  client_body_temp_path $folder/body;
  proxy_temp_path $folder/proxy;
  fastcgi_temp_path $folder/fastcgi;
  uwsgi_temp_path $folder/uwsgi;
  scgi_temp_path $folder/scgi;
  types { video/mp2t ts; }
  ${NGINX_HTTP:-}
  server {
    listen 127.0.0.1:$NGINX_PORT ${NGINX_LISTEN:-};
    root $root;
    $lines
  }
}
CONF
    nginx -p "$folder" -e "$folder/error.log" -c "$folder/nginx.conf" 2>"$folder/nginx.out" &
    NGINX_PID=$!
    if await_port "$NGINX_PORT" "$NGINX_PID"; then
      return 0
    fi
    echo "nginx did not start (attempt $attempt)" >>"$folder/nginx.out"
  done
  cat "$folder/nginx.out" "$folder/error.log" >&2
  return 1
}
