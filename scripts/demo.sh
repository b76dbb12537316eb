#!/usr/bin/env bash
# The main job on a factory-fresh sandboxed controller with its real TLS
# tunnel and web server: which server certificate is in force and its
# information (read from the files the first time, served from the
# database afterwards); then a new certificate generated, and one uploaded
# as a task, each seen by TLS clients of both services.
set -euo pipefail
bmccert=$1
state=/var/lib/bmc-sim
diag=$state/diag.log
. "$state/services.env"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

step() { printf '\n$ bmccert %s\n' "$*"; "$bmccert" "$@"; }
diag_lines() { if [ -e "$diag" ]; then wc -l <"$diag"; else echo 0; fi; }
new_diagnostics() {
    printf '\n-- library diagnostics since the last step (%s):\n' "$diag"
    if [ -e "$diag" ]; then tail -n +"$(($1 + 1))" "$diag"; fi
}
# What a TLS client of each service sees, a few seconds at most after a
# restart (the web server restarts 2 seconds after the library returns).
served() {
    local port=$1 want=$2 got=''
    for _ in $(seq 50); do
        got=$(timeout 10 openssl s_client -connect "127.0.0.1:$port" </dev/null 2>/dev/null |
            openssl x509 -noout -subject -serial 2>/dev/null | tr '\n' ' ')
        [[ $got == *"$want"* ]] && break
        sleep 0.2
    done
    echo "$got"
}
show_clients() {
    local want
    want=$(openssl x509 -noout -serial -in "$1")
    printf '\n$ openssl s_client -connect 127.0.0.1:%s   # the TLS tunnel\n%s\n' \
        "$BMC_SIM_TUNNEL_PORT" "$(served "$BMC_SIM_TUNNEL_PORT" "$want")"
    printf '$ openssl s_client -connect 127.0.0.1:%s   # the web server\n%s\n' \
        "$BMC_SIM_HTTPS_PORT" "$(served "$BMC_SIM_HTTPS_PORT" "$want")"
}

step type
step paths 4
show_clients /conf/certs/server/default/server.pem

seen=$(diag_lines)
step info
echo "(no stored record yet: read from the certificate files, then stored in the configuration database)"
new_diagnostics "$seen"

seen=$(diag_lines)
step info --json
echo "(served from the configuration database: no openssl run, no diagnostics)"
new_diagnostics "$seen"

step days-left

# The openssl tool's progress dots go to a file, shown only on failure.
step generate --cn bmc-07.example.org --org 'Example Works, Inc.' --ou Platform \
    --locality 'Old Town' --state North --country DE --email ops@bmc-07.example.org \
    2>"$work/openssl.log" || { cat "$work/openssl.log" >&2; exit 1; }
echo "(the tunnel restarted at once; the web server restarts 2 seconds later)"
show_clients /conf/certs/server/user/actualcert.pem
step info

openssl req -x509 -newkey rsa:2048 -nodes -sha256 -days 90 -keyout "$work/upload.key" \
    -out "$work/upload.crt" -subj '/C=DE/O=Example Works, Inc./CN=uploaded.example.org' \
    -addext extendedKeyUsage=serverAuth 2>/dev/null
step upload "$work/upload.crt" "$work/upload.key"
show_clients "$work/upload.crt"
step tasks
