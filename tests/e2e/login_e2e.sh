#!/usr/bin/env bash
# Login by client certificate through the real web server: runs inside
# `bmc-sandbox --services --private-network` (the OCSP responder listens on
# every address of that loopback-only network). A root and a client
# certificate are imported, the client certificate bound to a user, and
# authentication and revocation checking switched on; curl presenting the
# certificate is let in until the responder marks it revoked; a certificate
# of another authority never reaches the library.
#   usage: login_e2e.sh PATH-TO-BMCCERT
set -u
tool=${1:?usage: login_e2e.sh PATH-TO-BMCCERT}
state=/var/lib/bmc-sim
. "$state/services.env"
work=$(mktemp -d)
responder=''
cleanup() {
    if [ -n "$responder" ]; then kill "$responder" 2>/dev/null; wait "$responder" 2>/dev/null; fi
    rm -rf "$work"
}
trap cleanup EXIT
passed=0 failed=0
check() {  # NAME COMMAND...
    if "${@:2}"; then passed=$((passed + 1)); else failed=$((failed + 1)); echo "FAIL: $1" >&2; fi
}
cd "$work" || exit 1

# --- certificates: an authority, its OCSP responder, a client; a stranger ---------------
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
stop_responder() { kill "$responder"; wait "$responder" 2>/dev/null; responder=''; }
serve V 0
check "the responder listens" test -n "$port"
issue lab-root operator 0x0ABCDE "authorityInfoAccess=OCSP;URI:http://127.0.0.1:$port/"
issue stranger-root intruder 0x0ABCDE "authorityInfoAccess=OCSP;URI:http://127.0.0.1:$port/"

# --- set-up through the tool ---------------------------------------------------------------
"$tool" roots import lab-root.pem >/dev/null
check "root imported" test $? -eq 0
"$tool" clients import operator.pem --root 1 >/dev/null
check "client imported" test $? -eq 0
"$tool" bind 1 2 >/dev/null && "$tool" auth enable 1 >/dev/null &&
    "$tool" auth revocation on >/dev/null
check "bound, authentication and revocation checking on" test $? -eq 0

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
stop_responder
serve R "$port"
check "revoked: refused with the library's code" \
    test "$(login --cert operator.pem --key operator.key)" = "0x18000E17 403"
check "the password never reaches the web server's logs" \
    bash -c "! grep -rqs admin-password $state/run $state/diag.log"

echo "$passed passed, $failed failed"
[ "$failed" -eq 0 ]
