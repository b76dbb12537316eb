#!/usr/bin/env bash
# End to end against real services: runs inside `bmc-sandbox --services`.
# A generated and then an uploaded certificate must reach every TLS client
# of the controller (the tunnel and the web server) without a manual
# refresh; a refused upload must leave the previous certificate in service.
#   usage: services_e2e.sh PATH-TO-BMCCERT
set -u
tool=${1:?usage: services_e2e.sh PATH-TO-BMCCERT}
. /var/lib/bmc-sim/services.env
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
passed=0 failed=0
check() {  # NAME COMMAND...
    if "${@:2}"; then passed=$((passed + 1)); else failed=$((failed + 1)); echo "FAIL: $1" >&2; fi
}

served_serial() {
    timeout 10 openssl s_client -connect "127.0.0.1:$1" </dev/null 2>/dev/null |
        openssl x509 -noout -serial 2>/dev/null
}
# Both ports present the certificate of FILE within a few seconds (the web
# server restarts 2 seconds after the library returns).
both_serve() {
    local want
    want=$(openssl x509 -noout -serial -in "$1")
    for _ in $(seq 60); do
        [ "$(served_serial "$BMC_SIM_TUNNEL_PORT")" = "$want" ] &&
            [ "$(served_serial "$BMC_SIM_HTTPS_PORT")" = "$want" ] && return 0
        sleep 0.2
    done
    echo "  tunnel: $(served_serial "$BMC_SIM_TUNNEL_PORT"), web: $(served_serial "$BMC_SIM_HTTPS_PORT"), want $want" >&2
    return 1
}
info_serial() {
    "$tool" info --json | python3 -c 'import json,sys; print(json.load(sys.stdin)["stSSLConfig"]["szSerialNum"])'
}
file_serial() { openssl x509 -noout -serial -in "$1" | sed 's/^serial=//'; }
user_cert=/conf/certs/server/user/actualcert.pem

# --- generation -----------------------------------------------------------------
"$tool" generate --cn bmc-e2e.example.org --org 'Test Works' --ou Lab --locality Town \
    --state North --country DE --email ops@bmc-e2e.example.org --key-length 2048 >/dev/null 2>&1
check "generate succeeds" test $? -eq 0
check "tunnel and web server serve the generated certificate" both_serve "$user_cert"
check "info shows it without a refresh" test "$(info_serial)" = "$(file_serial "$user_cert")"

# --- upload of a valid pair ---------------------------------------------------------
openssl req -x509 -newkey rsa:2048 -nodes -keyout "$work/up.key" -out "$work/up.crt" -days 60 \
    -subj /CN=uploaded.example.org -addext extendedKeyUsage=serverAuth 2>/dev/null
"$tool" upload "$work/up.crt" "$work/up.key" >/dev/null 2>&1
check "upload finishes" test $? -eq 0
check "both ports serve the uploaded certificate" both_serve "$work/up.crt"

# --- upload refused for its MD5 signature (the library's suites check its
# task, event and log entry): the services keep the previous certificate
openssl req -x509 -md5 -newkey rsa:2048 -nodes -keyout "$work/md5.key" -out "$work/md5.crt" \
    -days 60 -subj /CN=md5.example.org -addext extendedKeyUsage=serverAuth 2>/dev/null
"$tool" upload "$work/md5.crt" "$work/md5.key" >/dev/null 2>&1
check "an MD5-signed upload fails" test $? -eq 1
check "the previous certificate is still served" both_serve "$work/up.crt"

echo "$passed passed, $failed failed"
[ "$failed" -eq 0 ]
