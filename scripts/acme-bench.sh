#!/usr/bin/env bash
# The ACME enrolment benchmark: in one sandbox, against the same pebble,
# the library's own enrolment (`bmccert acme order`) against the baseline
# of uacme, the reference client, having the controller's signing request
# for bmc-07.example.org and 127.0.0.1 issued through http-01 and
# `bmccert install-signed` putting the answer in service. Both are timed
# until the web server serves the new certificate; the runs alternate so
# that both see the same machine. Each run makes a new key, so every run
# is a whole enrolment; both accounts are registered before the runs.
# Prints each run, the medians in milliseconds and their ratio.
#   usage: scripts/acme-bench.sh [BUILD-DIR [RUNS]]   (default build, 5)
# pebble's random pause before validating and its authorisation reuse are
# off, and no good nonce is refused, unless the environment says
# otherwise, so that the runs compare.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
if [ -z "${BMC_SANDBOX_ROOT:-}" ]; then
    build=$(cd "${1:-$here/../build}" && pwd)
    export PEBBLE_VA_NOSLEEP=${PEBBLE_VA_NOSLEEP-1} PEBBLE_AUTHZREUSE=${PEBBLE_AUTHZREUSE-0} \
        PEBBLE_WFE_NONCEREJECT=${PEBBLE_WFE_NONCEREJECT-0}
    exec "$build/bin/bmc-sandbox" --fresh --services --private-network --acme \
        "$build/sandbox/acme_bench" -- bash "$here/acme-bench.sh" "$build" "${2:-5}"
fi
build=$1 runs=$2
bmccert=$build/bin/bmccert
. /var/lib/bmc-sim/services.env
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
. "$here/../tests/e2e/uacme_client.sh" "$work"
host=bmc-07.example.org
subject=(--cn "$host" --org Lab --ou Platform --locality Town --state North --country DE
    --email "ops@$host" --dns "$host" --ip 127.0.0.1)

now_ms() { echo $(($(date +%s%N) / 1000000)); }
median() { sort -n | awk '{ v[NR] = $1 } END { print (NR % 2) ? v[(NR + 1) / 2] : (v[NR / 2] + v[NR / 2 + 1]) / 2 }'; }
served_serial() {
    timeout 10 openssl s_client -connect "127.0.0.1:$BMC_SIM_HTTPS_PORT" </dev/null 2>/dev/null |
        openssl x509 -noout -serial 2>/dev/null
}
until_served() {  # OLD-SERIAL: returns once another certificate is served
    for _ in $(seq 400); do
        [ "$(served_serial)" != "$1" ] && return 0
        sleep 0.025
    done
    echo "acme-bench: the new certificate was not served" >&2
    return 1
}

acme new >/dev/null
"$bmccert" acme register --directory "$BMC_SIM_ACME_DIRECTORY" --email "ops@$host" --agree-tos \
    --ca-file "$BMC_SIM_ACME_TLS_CA" >/dev/null
: >"$work/t-uacme" && : >"$work/t-library"
echo "run  uacme+install-signed  acme-order   (ms, until served)"
for run in $(seq "$runs"); do
    # Nothing to keep: uacme would name the copy of the certificate it
    # replaces by the second, and two runs may fall in one.
    rm -f "$work"/bmc-cert*.pem
    old=$(served_serial)
    t0=$(now_ms)
    "$bmccert" csr "${subject[@]}" --out "$work/bmc.csr" >/dev/null
    acme issue "$work/bmc.csr"
    "$bmccert" install-signed "$work/bmc-cert.pem" >/dev/null
    until_served "$old"
    t1=$(now_ms)
    old=$(served_serial)
    t2=$(now_ms)
    "$bmccert" acme order "${subject[@]}" >/dev/null
    until_served "$old"
    t3=$(now_ms)
    echo "$((t1 - t0))" >>"$work/t-uacme"
    echo "$((t3 - t2))" >>"$work/t-library"
    printf '%3d %21d %11d\n' "$run" "$((t1 - t0))" "$((t3 - t2))"
done
base=$(median <"$work/t-uacme") ours=$(median <"$work/t-library")
printf 'median %17s %11s\n' "$base" "$ours"
awk -v b="$base" -v o="$ours" 'BEGIN { printf "ratio acme-order / (uacme + install-signed): %.2f\n", o / b }'
