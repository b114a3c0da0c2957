# shellcheck shell=bash
# Sixteen players against nginx and the fault server: FLUVIA_SOAK_SECONDS, else an hour.
# Leaves build/soak.csv and build/soak.svg.
. scripts/nginx.sh

make_soak() {
  configure release -DFLUVIA_TESTS=ON && build release --target ordeal_soak
}

soak() {
  local program=build/release/tests/ordeal/soak/ordeal_soak folder result
  folder=$(mktemp -d)
  mkdir "$folder/www"
  "$program" --make "$folder/www/film.ts" 20000000
  start_nginx "$folder" "$folder/www" "location /limited/ { alias $folder/www/; limit_rate 3m; }"
  local url=http://127.0.0.1:$NGINX_PORT
  # Each thread's cache of freed memory counts as in use, and grows with the number of threads.
  GLIBC_TUNABLES=glibc.malloc.tcache_count=0 "$program" \
    --seconds "${FLUVIA_SOAK_SECONDS:-3600}" --csv build/soak.csv \
    --url "$url/film.ts" 20000000 --url "$url/limited/film.ts" 20000000 \
    --url "$url//film.ts" 20000000 --url "$url/./film.ts" 20000000 | tee build/soak.log
  result=${PIPESTATUS[0]}
  kill "$NGINX_PID"
  rm -rf "$folder"
  tests/ordeal/draw.py soak build/soak.csv build/soak.svg
  return "$result"
}

check "packages of the servers" scripts/install-dependencies servers
check "build soak" make_soak
check "soak" soak
