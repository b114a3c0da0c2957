#!/bin/bash
# A real network in a box: the library in one network namespace, a server in another, and between them a cable
# that is pulled, loses packets, is slow or long.
#
#   tests/ordeal/network/box.sh BUILD
#
# BUILD is the folder of a build with the players, their media and references (players.sh BUILD make_media).
# Needs root, ip, tc, nft, nginx, python3 and a kernel with network namespaces; cases that the kernel refuses
# are reported as skipped. Prints a line for each case: its name, "right", "wrong" or "skipped", and the result.
# Exit code 1 if one is wrong. Nothing outside the two namespaces is contacted.
# shellcheck disable=SC2317  # the cases are called by their names
set -euo pipefail
here=$(dirname "$(realpath "$0")")
build=$(realpath "$1")
fluvia=$build/tools/fluvia
library=$build/libfluviafs.so
PATH=$PATH:/usr/sbin:/sbin
work=$(mktemp -d)
tag=fluvia$$
client=$tag-c
server=$tag-s
bad=0

# shellcheck disable=SC2317,SC2329  # the trap's
cleanup() {
  local pid
  for pid in $(jobs -p); do kill "$pid" 2>/dev/null || true; done
  wait 2>/dev/null || true
  ip netns del "$client" 2>/dev/null || true
  ip netns del "$server" 2>/dev/null || true
  rm -rf "$work" "/etc/netns/$client"
}
trap cleanup EXIT

told() {
  printf '%-44s %-8s %s\n' "$1" "$2" "$3"
  [ "$2" != wrong ] || bad=1
}

in_client() { ip netns exec "$client" "$@"; }
in_server() { ip netns exec "$server" "$@"; }

make_box() {
  ip netns add "$client" && ip netns add "$server" &&
    ip link add veth0 netns "$client" type veth peer name veth0 netns "$server" &&
    in_client ip link set lo up && in_server ip link set lo up &&
    in_client ip addr add 10.77.0.1/24 dev veth0 && in_server ip addr add 10.77.0.2/24 dev veth0 &&
    in_client ip addr add fd77::1/64 dev veth0 nodad &&
    in_server ip addr add fd77::2/64 dev veth0 nodad &&
    in_client ip link set veth0 up && in_server ip link set veth0 up
}

run_nginx() {
  # Not by in_server: then its subshell would be the job.
  ip netns exec "$server" nginx -p "$work" -c "$work/nginx.conf" >"$work/nginx.err" 2>&1 &
  nginx=$!
}

start_server() {
  head -c 8000000 /dev/urandom >"$work/large"
  head -c 1000000 "$work/large" >"$work/small"
  cat >"$work/nginx.conf" <<CONF
user root;
daemon off;
pid $work/nginx.pid;
error_log $work/error.log;
events {}
http {
  access_log off;
  server { listen 80; listen [::]:80; root $work; }
}
CONF
  run_nginx
  local tries
  for tries in $(seq 100); do
    if in_client bash -c 'exec 3<>/dev/tcp/10.77.0.2/80' 2>/dev/null; then return 0; fi
    sleep 0.1
  done
  echo "no server after $tries tries" >&2
  return 1
}

# fetch URL [options]: into $work/got; sets result to the exit code and took to the seconds.
fetch() {
  local began=$SECONDS
  result=0
  local url=$1
  shift
  in_client timeout 90 "$fluvia" cat --output "$work/got" "$url" "$@" 2>"$work/err" || result=$?
  took=$((SECONDS - began))
}

# whole NAME FILE: the fetched bytes are the file.
whole() {
  if [ "$result" -eq 0 ] && cmp -s "$work/got" "$work/$2"; then
    told "$1" right "every byte, $took s"
  else
    told "$1" wrong "exit code $result after $took s: $(tail -n 1 "$work/err")"
  fi
}

# refused NAME SECONDS: it failed within that time: at most two connections of 10 s, and the time of the
# kernel and its name servers.
refused() {
  if [ "$result" -eq 1 ] && [ "$took" -le "$2" ]; then
    told "$1" right "an error after $took s"
  else
    told "$1" wrong "exit code $result after $took s"
  fi
}

rate() { in_server tc qdisc replace dev veth0 root tbf rate "$1" burst 16kb latency 200ms; }
full_rate() { in_server tc qdisc del dev veth0 root; }

case_plain() {
  fetch http://10.77.0.2/large
  whole "a good cable" large
}

case_cable() {
  rate 16mbit
  (
    sleep 1
    in_client ip link set veth0 down
    sleep 3
    in_client ip link set veth0 up
  ) &
  local puller=$!
  fetch http://10.77.0.2/large
  wait "$puller"
  full_rate
  whole "cable pulled for 3 s" large
}

# pull_long [options]: fetches while the cable is pulled for 15 s.
pull_long() {
  rate 16mbit
  (
    sleep 1
    in_client ip link set veth0 down
    sleep 15
    in_client ip link set veth0 up
  ) &
  local puller=$!
  fetch http://10.77.0.2/large "$@"
  wait "$puller"
  full_rate
}

case_cable_long() {
  pull_long
  whole "cable pulled for 15 s" large
  # Ten seconds of silence are final for the library without the feature flag.
  pull_long --reopen 0
  refused "cable pulled for 15 s, not reopened" 40
}

# know_name NAMESPACE ADDRESS: starts a name server there that knows film.test by that address, except while
# the file "gone" exists.
know_name() {
  mkdir -p "/etc/netns/$client"
  printf 'nameserver %s\noptions timeout:1 attempts:1\n' "$2" >"/etc/netns/$client/resolv.conf"
  ip netns exec "$1" python3 "$here/one_name.py" "$2" film.test "$2" "$work/gone" >"$work/names.out" 2>&1 &
  names=$!
  for _ in $(seq 100); do
    grep -q ready "$work/names.out" && break
    sleep 0.1
  done
}

# The server goes, and its name cannot be resolved for five seconds.
case_name_gone() {
  local names began=$SECONDS reader
  know_name "$server" 10.77.0.2
  rate 16mbit
  ip netns exec "$client" timeout 90 "$fluvia" cat --output "$work/got" http://film.test/large 2>"$work/err" &
  reader=$!
  sleep 1
  : >"$work/gone"
  kill "$nginx"
  wait "$nginx" || true
  # The library gives up; the reconnection resolves the name.
  sleep 2
  run_nginx
  sleep 3
  rm "$work/gone"
  result=0
  wait "$reader" || result=$?
  took=$((SECONDS - began))
  kill "$names"
  full_rate
  if grep -q "nobody knows the name of that server" "$work/err"; then
    whole "name gone for 5 s, cat" large
  else
    told "name gone for 5 s, cat" wrong "it was not looked up"
  fi
}

# The same for the other clients that survive an outage, with server and name server in their namespace.
case_name_gone_for_players() {
  local player names
  know_name "$client" 127.0.0.1
  for player in gstreamer ffmpeg mpv mount; do
    if FLUVIA_HOST=film.test FLUVIA_GONE=$work/gone ip netns exec "$client" timeout --kill-after=10 200 \
      "$here/../../products/players/players.sh" "$build" "${player}_nameless_5" >"$work/err" 2>&1; then
      told "name gone for 5 s, $player" right "every frame"
    else
      told "name gone for 5 s, $player" wrong "$(grep "^${player}_nameless_5:" "$work/err" || tail -n 1 "$work/err")"
    fi
    rm -f "$work/gone"
  done
  kill "$names"
}

case_loss() {
  local name
  for name in "$client" "$server"; do
    if ! ip netns exec "$name" nft -f - 2>"$work/nft.err" <<'NFT'; then
table inet loss {
  chain input {
    type filter hook input priority 0;
    tcp sport 80 numgen random mod 10 < 2 drop
    tcp dport 80 numgen random mod 10 < 2 drop
  }
}
NFT
      told "20 % of the packets lost" skipped "no numgen in this kernel: $(head -n 1 "$work/nft.err")"
      return
    fi
  done
  fetch http://10.77.0.2/small
  in_client nft delete table inet loss
  in_server nft delete table inet loss
  whole "20 % of the packets lost" small
}

case_slow() {
  rate 1mbit
  fetch http://10.77.0.2/small
  full_rate
  whole "1 Mbit/s" small
}

case_far() {
  if [ ! -c /dev/net/tun ]; then
    told "round trips of 300 ms" skipped "no /dev/net/tun"
    return
  fi
  python3 "$here/delay.py" "$client" far0 "$server" far0 150 >"$work/delay.out" 2>&1 &
  local tries
  for tries in $(seq 100); do
    grep -q ready "$work/delay.out" && break
    sleep 0.1
  done
  if [ "$tries" -eq 100 ]; then
    told "round trips of 300 ms" skipped "no TUN device: $(tail -n 1 "$work/delay.out")"
    return
  fi
  in_client ip addr add 10.78.0.1/24 dev far0
  in_server ip addr add 10.78.0.2/24 dev far0
  in_client ip link set far0 up
  in_server ip link set far0 up
  fetch http://10.78.0.2/small
  whole "round trips of 300 ms" small
}

case_unreachable() {
  fetch http://10.99.0.1/small
  refused "no route" 5
  in_server nft -f - <<'NFT'
table inet silent {
  chain input {
    type filter hook input priority 0;
    tcp dport 81 drop
  }
}
NFT
  fetch http://10.77.0.2:81/small
  refused "a host that does not answer" 25
  in_server nft delete table inet silent
}

case_resolver() {
  mkdir -p "/etc/netns/$client"
  echo "nameserver 10.77.0.2" >"/etc/netns/$client/resolv.conf"
  in_server nft -f - <<'NFT'
table inet silent {
  chain input {
    type filter hook input priority 0;
    udp dport 53 drop
  }
}
NFT
  fetch http://nobody.test/small
  refused "a resolver that never answers" 25
  in_server nft delete table inet silent
}

case_titles() {
  mkdir -p "/etc/netns/$client"
  echo "nameserver 10.77.0.2" >"/etc/netns/$client/resolv.conf"
  ip netns exec "$server" python3 "$here/names.py" 10.77.0.2 10.77.0.2 "$work/asked" \
    >"$work/names.out" 2>&1 &
  local tries urls=() asked
  for tries in $(seq 100); do
    grep -q ready "$work/names.out" && break
    sleep 0.1
  done
  for title in $(seq 20); do urls+=("http://film.test/small?title=$title"); done
  if in_client timeout 60 python3 "$here/titles.py" "$library" "${urls[@]}" \
    >"$work/titles.out" 2>"$work/err"; then
    asked=$(wc -l <"$work/asked")
    if [ "$asked" -eq 1 ]; then
      told "twenty titles of a host" right "$(cat "$work/titles.out"), one look-up"
    else
      told "twenty titles of a host" wrong "$asked look-ups"
    fi
  else
    told "twenty titles of a host" wrong "$(cat "$work/titles.out") after $tries tries"
  fi
}

case_ipv6() {
  # The pulled cable has removed the address.
  in_client ip addr replace fd77::1/64 dev veth0 nodad
  in_client ip addr del 10.77.0.1/24 dev veth0
  fetch "http://[fd77::2]/small" --ipv 6
  whole "IPv6 only" small
  in_client ip addr add 10.77.0.1/24 dev veth0
}

if ! make_box 2>"$work/box.err"; then
  told "network namespaces" skipped "the kernel refuses: $(head -n 1 "$work/box.err")"
  exit 0
fi
start_server
for name in plain cable cable_long name_gone name_gone_for_players loss slow far unreachable resolver titles ipv6; do "case_$name"; done
exit "$bad"
