#!/usr/bin/env bash
# The baseline of the ACME enrolment benchmark: the time uacme, the
# reference client, takes to have the controller's signing request for
# bmc-07.example.org and 127.0.0.1 issued by the sandbox's pebble through
# http-01, and bmccert install-signed to put the answer in service. Each
# run makes a new request (a new key), so every run is a whole enrolment;
# the account is registered once, before the runs. Prints each run and the
# median of each step, in milliseconds.
#   usage: scripts/acme-baseline.sh [BUILD-DIR [RUNS]]   (default build, 5)
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
        "$build/sandbox/acme_baseline" -- bash "$here/acme-baseline.sh" "$build" "${2:-5}"
fi
build=$1 runs=$2
bmccert=$build/bin/bmccert
. /var/lib/bmc-sim/services.env
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
. "$here/../tests/e2e/uacme_client.sh" "$work"
host=bmc-07.example.org

now_ms() { echo $(($(date +%s%N) / 1000000)); }
median() { sort -n | awk '{ v[NR] = $1 } END { print (NR % 2) ? v[(NR + 1) / 2] : (v[NR / 2] + v[NR / 2 + 1]) / 2 }'; }

acme new >/dev/null
: >"$work/times"
echo "run  csr  issue  install-signed  total   (ms)"
for run in $(seq "$runs"); do
    # Nothing to keep: uacme would name the copy of the certificate it
    # replaces by the second, and two runs may fall in one.
    rm -f "$work"/bmc-cert*.pem
    t0=$(now_ms)
    "$bmccert" csr --cn "$host" --org Lab --ou Platform --locality Town --state North --country DE \
        --email "ops@$host" --dns "$host" --ip 127.0.0.1 --out "$work/bmc.csr" >/dev/null
    t1=$(now_ms)
    acme issue "$work/bmc.csr"
    t2=$(now_ms)
    "$bmccert" install-signed "$work/bmc-cert.pem" >/dev/null
    t3=$(now_ms)
    echo "$((t1 - t0)) $((t2 - t1)) $((t3 - t2)) $((t3 - t0))" | tee -a "$work/times" |
        awk -v r="$run" '{ printf "%3d %5d %6d %15d %6d\n", r, $1, $2, $3, $4 }'
done
printf 'median %3s %6s %15s %6s\n' "$(cut -d' ' -f1 "$work/times" | median)" \
    "$(cut -d' ' -f2 "$work/times" | median)" "$(cut -d' ' -f3 "$work/times" | median)" \
    "$(cut -d' ' -f4 "$work/times" | median)"
