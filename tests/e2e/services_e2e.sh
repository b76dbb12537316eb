#!/usr/bin/env bash
# End to end against real services: runs inside `bmc-sandbox --services
# --private-network` (the OCSP responder listens on every address of that
# loopback-only network).
# A generated and then an uploaded certificate must reach every TLS client
# of the controller (the tunnel and the web server) without a manual
# refresh (a refused upload, which restarts nothing, is the import tests').
# Then login by client certificate through the web server: a root and a
# client certificate are imported, the client certificate bound to a user,
# and authentication and revocation checking switched on; curl presenting
# the certificate is let in until the responder marks it revoked; a
# certificate of another authority never reaches the library.
#   usage: services_e2e.sh PATH-TO-BMCCERT
set -u
tool=${1:?usage: services_e2e.sh PATH-TO-BMCCERT}
state=/var/lib/bmc-sim
. "$state/services.env"
work=$(mktemp -d)
responder=''
trap '[ -z "$responder" ] || { kill "$responder"; wait "$responder"; } 2>/dev/null; rm -rf "$work"' EXIT
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
    local want=$(openssl x509 -noout -serial -in "$1")
    for _ in $(seq 60); do
        [ "$(served_serial "$BMC_SIM_TUNNEL_PORT")" = "$want" ] &&
            [ "$(served_serial "$BMC_SIM_HTTPS_PORT")" = "$want" ] && return 0
        sleep 0.2
    done
    echo "  tunnel: $(served_serial "$BMC_SIM_TUNNEL_PORT"), web: $(served_serial "$BMC_SIM_HTTPS_PORT"), want $want" >&2
    return 1
}
info_serial() {
    "$tool" info --json | python3 -c 'import json,sys; print(json.load(sys.stdin)["certificate"]["serial"])'
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

# --- login: an authority, its OCSP responder, a client; a stranger -------------------
cd "$work" || exit 1
# Fixtures are made with the machine's own tool, whatever openssl the suite
# tests first on PATH.
fixture_openssl=/usr/bin/openssl
ca() {  # NAME: a self-signed authority NAME.pem with NAME.key
    "$fixture_openssl" req -x509 -newkey rsa:2048 -nodes -keyout "$1.key" -out "$1.pem" -days 30 \
        -subj "/O=Test Works/CN=$1" -addext basicConstraints=critical,CA:TRUE \
        -addext keyUsage=keyCertSign,cRLSign 2>/dev/null
}
issue() {  # CA NAME SERIAL EXTENSIONS: NAME.pem and NAME.key issued by CA
    "$fixture_openssl" req -newkey rsa:2048 -nodes -keyout "$2.key" -out "$2.csr" -subj "/CN=$2" 2>/dev/null &&
        "$fixture_openssl" x509 -req -in "$2.csr" -CA "$1.pem" -CAkey "$1.key" -set_serial "$3" -days 10 \
            -out "$2.pem" -extfile <(printf '%s\n' "$4") 2>/dev/null
}
ca lab-root && ca stranger-root
issue lab-root responder 0x01 'extendedKeyUsage=OCSPSigning'
serve() {  # STATUS PORT: a responder for the operator's serial, on PORT (0: any)
    local revoked=''
    [ "$1" = R ] && revoked=240601000000Z
    printf '%s\t340101000000Z\t%s\t0ABCDE\tunknown\t/CN=operator\n' "$1" "$revoked" >index.txt
    : >responder.out
    # The machine's own tool, whatever openssl the suite tests: a peer that
    # reports the port it was given.
    /usr/bin/openssl ocsp -index index.txt -port "$2" -rsigner responder.pem -rkey responder.key \
        -CA lab-root.pem -ignore_err >responder.out 2>/dev/null &
    responder=$!
    for _ in $(seq 50); do grep -q '^ACCEPT' responder.out && break; sleep 0.1; done
    port=$(sed -n 's/^ACCEPT .*:\([0-9]*\) PID=.*/\1/p' responder.out)
}
serve V 0
check "the responder listens" test -n "$port"
issue lab-root operator 0x0ABCDE "authorityInfoAccess=OCSP;URI:http://127.0.0.1:$port/"
issue stranger-root intruder 0x0ABCDE "authorityInfoAccess=OCSP;URI:http://127.0.0.1:$port/"

# --- set-up through the tool ---------------------------------------------------------------
"$tool" roots import lab-root.pem >/dev/null && "$tool" clients import operator.pem --root 1 >/dev/null &&
    "$tool" bind 1 2 >/dev/null && "$tool" auth enable 1 >/dev/null &&
    "$tool" auth revocation on >/dev/null
check "imported, bound, authentication and revocation checking on" test $? -eq 0

login() {  # CERT-NAME...: "STATUS BODY" of /login
    curl -sk --max-time 20 -w ' %{http_code}' "$@" "https://127.0.0.1:$BMC_SIM_HTTPS_PORT/login" |
        tr -d '\n'
}
check "the certificate logs in as admin" test "$(login --cert operator.pem --key operator.key)" = "admin 200"
check "no certificate: refused" test "$(login)" = "no verified client certificate 403"
diag_lines() { if [ -e "$state/diag.log" ]; then wc -l <"$state/diag.log"; else echo 0; fi; }
diag_before=$(diag_lines)
check "another authority's certificate: refused" \
    test "$(login --cert intruder.pem --key intruder.key)" = "no verified client certificate 403"
check "... without reaching the library" test "$(diag_lines)" -eq "$diag_before"

# The responder comes back on its port (nothing else lives in this
# network) with the certificate marked revoked.
kill "$responder" && wait "$responder" 2>/dev/null
serve R "$port"
check "revoked: refused with the library's code" \
    test "$(login --cert operator.pem --key operator.key)" = "0x18000E17 403"
check "the password never reaches the web server's logs" \
    bash -c "! grep -rqs admin-password $state/run $state/diag.log"

echo "$passed passed, $failed failed"
[ "$failed" -eq 0 ]
