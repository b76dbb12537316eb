#!/usr/bin/env bash
# Power cuts during an installation. Runs inside `bmc-sandbox --services`.
# For one flow (install: `bmccert install`, generate: generate-and-restart,
# upload: an upload's import thread) the whole process tree is killed with
# SIGKILL at KILLS instants spread evenly over the flow's duration; then the
# controller starts as after a power cut (`bmccert recover`, which its boot
# runs before the services) and the installed set must be whole, the
# previous one or the new one:
#   - the pair in force (type 1) is a certificate and its own key;
#   - server.pem is that certificate followed by that key, byte for byte;
#   - stunnel.conf is whole and names the pair;
#   - the stored record describes the pair in force or the previous one.
# Every tenth kill the real services restart from the files and must
# present the certificate in force.
#   usage: crash_test.sh TOOL FLOW KILLS   (BMCCERT_CRASH_KILLS overrides KILLS;
#   BMCCERT_CRASH_SLICE=K/N runs only the kills K, K+N, K+2N ..., so that N
#   sandboxes side by side share a long run)
set -u
tool=${1:?usage: crash_test.sh TOOL FLOW KILLS} flow=${2:?} kills=${BMCCERT_CRASH_KILLS:-${3:?}}
. /var/lib/bmc-sim/services.env
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cert=/conf/certs/server/user/actualcert.pem key=/conf/certs/server/user/actualprivkey.pem
combined=/conf/certs/server/server.pem
broken=0 served=0 count=0 slice=${BMCCERT_CRASH_SLICE:-0/1}

serial() { openssl x509 -noout -serial -in "$1" 2>/dev/null; }
record() { "$tool" info --json | python3 -c 'import json,sys; print("serial=" + json.load(sys.stdin)["certificate"]["serial"])'; }
for pair in a b; do
  openssl req -x509 -newkey rsa:2048 -nodes -sha256 -days 30 -subj "/CN=crash-$pair" \
    -addext extendedKeyUsage=serverAuth -keyout "$work/$pair.key" -out "$work/$pair.crt" 2>/dev/null
done
# The flow, installing the pair that is not in force.
run_flow() {
  local next=a
  [ "$(serial "$cert")" = "$(serial "$work/a.crt")" ] && next=b
  case $flow in
    install) exec setsid "$tool" install "$work/$next.crt" "$work/$next.key" ;;
    upload) cp "$work/$next.crt" "$work/up.crt" && cp "$work/$next.key" "$work/up.key" &&
            exec setsid "$tool" upload "$work/up.crt" "$work/up.key" ;;
    generate) exec setsid "$tool" generate --cn crash.example.org --org 'Test Works' --ou Lab \
              --locality Town --state North --country DE --email ops@crash.example.org --key-length 2048 ;;
  esac
}
broken_set() { echo "kill $1 at ${2} ms: $3" >&2; broken=$((broken + 1)); }
check_set() {  # KILL AT PREVIOUS-SERIAL
  "$tool" recover >/dev/null || { broken_set "$1" "$2" "recover failed"; return; }
  [ "$("$tool" type)" = "1 user" ] || { broken_set "$1" "$2" "type $("$tool" type)"; return; }
  [ "$(openssl x509 -noout -pubkey -in $cert)" = "$(openssl pkey -pubout -in $key 2>/dev/null)" ] ||
    { broken_set "$1" "$2" "certificate and key do not match"; return; }
  cmp -s $combined <(cat $cert $key) || { broken_set "$1" "$2" "server.pem is not the pair"; return; }
  cmp -s /conf/adviserd/stunnel.conf "$work/stunnel.conf" || { broken_set "$1" "$2" "stunnel.conf"; return; }
  local now=$(serial $cert) stored=$(record)
  [ "$stored" = "$now" ] || [ "$stored" = "$3" ] || { broken_set "$1" "$2" "record $stored, in force $now"; return; }
  (($1 % 10 == 0)) || return
  systemctl restart stunnel.service && systemctl restart lighttpd.service
  for _ in $(seq 50); do
    [ "$(echo | timeout 5 openssl s_client -connect 127.0.0.1:$BMC_SIM_TUNNEL_PORT 2>/dev/null | openssl x509 -noout -serial)" = "$now" ] &&
      [ "$(echo | timeout 5 openssl s_client -connect 127.0.0.1:$BMC_SIM_HTTPS_PORT 2>/dev/null | openssl x509 -noout -serial)" = "$now" ] &&
      { served=$((served + 1)); return; }
    sleep 0.1
  done
  broken_set "$1" "$2" "the services do not present $now"
}

# One whole run sets the pair and tells how long the flow takes.
"$tool" install "$work/a.crt" "$work/a.key" >/dev/null || exit 1
cp /conf/adviserd/stunnel.conf "$work/stunnel.conf"
start=$(date +%s%N); (run_flow) >/dev/null 2>&1; took=$((($(date +%s%N) - start) / 1000000))
for ((i = ${slice%/*}; i < kills; i += ${slice#*/}, count++)); do
  at=$((took * (2 * i + 1) / (2 * kills)))
  previous=$(serial $cert)
  (run_flow) >/dev/null 2>&1 &
  pid=$!
  sleep "$(printf '%d.%03d' $((at / 1000)) $((at % 1000)))"
  kill -KILL -- "-$pid" 2>/dev/null || kill -KILL "$pid" 2>/dev/null
  wait "$pid" 2>/dev/null
  check_set "$i" "$at" "$previous"
done
echo "$flow: $count kills over ${took} ms, $broken broken sets, $served restarts served the pair in force"
((broken == 0))
