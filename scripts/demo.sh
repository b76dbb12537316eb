#!/usr/bin/env bash
# The main job on a factory-fresh sandboxed controller with its real TLS
# tunnel and web server: which server certificate is in force and its
# information (read from the files the first time, served from the
# database afterwards); then a new certificate generated, and one uploaded
# as a task, each seen by TLS clients of both services; finally a login by
# client certificate through the web server, with revocation checking
# against a local OCSP responder, and a revoked certificate refused; last,
# a signing request of the controller answered by a lab CA, installed, and
# the tunnel verified by name against that CA.
set -euo pipefail
bmccert=$1
state=/var/lib/bmc-sim
diag=$state/diag.log
. "$state/services.env"
work=$(mktemp -d)
responder=''
cleanup() {
    if [ -n "$responder" ]; then kill "$responder" 2>/dev/null; wait "$responder" 2>/dev/null || true; fi
    rm -rf "$work"
}
trap cleanup EXIT

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

# --- Login by client certificate ---------------------------------------------------------
# A lab authority, its OCSP responder (a real `openssl ocsp`, in this
# sandbox's loopback-only network) and an operator's certificate that
# names the responder.
cd "$work"
openssl req -x509 -newkey rsa:2048 -nodes -keyout lab-root.key -out lab-root.pem -days 30 \
    -subj '/O=Example Works, Inc./CN=Example Lab Root' -addext basicConstraints=critical,CA:TRUE \
    -addext keyUsage=keyCertSign,cRLSign 2>/dev/null
issue() {  # NAME SERIAL EXTENSION
    openssl req -newkey rsa:2048 -nodes -keyout "$1.key" -out "$1.csr" -subj "/CN=$1" 2>/dev/null
    printf '%s\n' "$3" >"$1.ext"
    openssl x509 -req -in "$1.csr" -CA lab-root.pem -CAkey lab-root.key -set_serial "$2" \
        -days 10 -out "$1.pem" -extfile "$1.ext" 2>/dev/null
}
serve() {  # V|R PORT: the responder, knowing the operator's certificate as good or revoked
    local revoked=''
    [ "$1" = R ] && revoked=240601000000Z
    printf '%s\t340101000000Z\t%s\t0ABCDE\tunknown\t/CN=operator\n' "$1" "$revoked" >index.txt
    : >responder.out
    openssl ocsp -index index.txt -port "$2" -rsigner responder.pem -rkey responder.key \
        -CA lab-root.pem -ignore_err >responder.out 2>/dev/null &
    responder=$!
    for _ in $(seq 50); do grep -q '^ACCEPT' responder.out && break; sleep 0.1; done
    port=$(sed -n 's/^ACCEPT .*:\([0-9]*\) PID=.*/\1/p' responder.out)
}
issue responder 0x01 extendedKeyUsage=OCSPSigning
serve V 0
issue operator 0x0ABCDE "authorityInfoAccess=OCSP;URI:http://127.0.0.1:$port/"
echo
echo "(OCSP responder on 127.0.0.1:$port; operator certificate $(openssl x509 -noout -serial -in operator.pem))"

step roots import lab-root.pem
step clients import operator.pem --root 1
step bind 1 2
step auth enable 1
step auth revocation on
step auth status

login_url="https://127.0.0.1:$BMC_SIM_HTTPS_PORT/login"
login() {
    printf '\n$ curl --cert operator.pem --key operator.key %s\n' "$login_url"
    curl -sk --max-time 20 -w 'HTTP %{http_code}\n' --cert operator.pem --key operator.key "$login_url"
}
login
printf '\n$ curl %s   # no client certificate\n' "$login_url"
curl -sk --max-time 20 -w 'HTTP %{http_code}\n' "$login_url"

echo
echo "(the responder now reports the operator's certificate revoked)"
kill "$responder"; wait "$responder" 2>/dev/null || true
serve R "$port"
seen=$(diag_lines)
login
new_diagnostics "$seen"

# --- Certificates that clients trust ------------------------------------------------------
# The controller makes its own key and a signing request; a small CA in this
# scratch directory signs it, taking the names from the request; the answer
# is installed, and a client that trusts only the CA verifies the tunnel by
# name.
echo
echo "(a signing request for the controller, answered by a lab CA)"
openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -keyout ca.key -out ca.pem \
    -days 30 -subj '/O=Example Works, Inc./CN=Example Lab CA' \
    -addext basicConstraints=critical,CA:TRUE -addext keyUsage=critical,keyCertSign,cRLSign 2>/dev/null
step csr --cn bmc-07.example.org --org 'Example Works, Inc.' --ou Platform --locality 'Old Town' \
    --state North --country DE --email ops@bmc-07.example.org \
    --dns bmc-07.example.org --ip 127.0.0.1 --out bmc.csr
step csr --show
printf '\n$ openssl x509 -req -in bmc.csr -CA ca.pem -CAkey ca.key -copy_extensions copy ... -out bmc.pem\n'
openssl x509 -req -in bmc.csr -CA ca.pem -CAkey ca.key -copy_extensions copy -set_serial 0x07 \
    -days 30 -out bmc.pem 2>/dev/null
step install-signed bmc.pem
printf '\n$ openssl s_client -connect 127.0.0.1:%s -verify_hostname bmc-07.example.org -CAfile ca.pem\n' \
    "$BMC_SIM_TUNNEL_PORT"
# The tunnel may reset the connection after the handshake (nothing listens
# behind it): the verification's lines tell the outcome.
verified=$(openssl s_client -connect "127.0.0.1:$BMC_SIM_TUNNEL_PORT" -verify_return_error \
    -verify_hostname bmc-07.example.org -CAfile ca.pem </dev/null 2>&1 || true)
grep -E '^(subject|issuer)=|^Verify return code' <<<"$verified"

# --- Enrolment with an ACME CA -----------------------------------------------------------------
# pebble, started by the sandbox, validates the names over plain HTTP
# against the controller's web server; the account's key and the
# certificate's key are born on the controller; the timer's renewal says
# "not due" until a third of the lifetime remains.
echo
echo "(enrolment with an ACME CA: pebble in the sandbox)"
step acme register --directory "$BMC_SIM_ACME_DIRECTORY" --email ops@bmc-07.example.org \
    --agree-tos --ca-file "$BMC_SIM_ACME_TLS_CA"
step acme order --cn bmc-07.example.org --org 'Example Works, Inc.' --ou Platform \
    --locality 'Old Town' --state North --country DE --email ops@bmc-07.example.org \
    --dns bmc-07.example.org --ip 127.0.0.1 --enable
step acme renew --if-due
step acme status
printf '\n$ openssl s_client -connect 127.0.0.1:%s -verify_hostname bmc-07.example.org -CAfile pebble-root.pem\n' \
    "$BMC_SIM_HTTPS_PORT"
for _ in $(seq 50); do
    verified=$(openssl s_client -connect "127.0.0.1:$BMC_SIM_HTTPS_PORT" -verify_return_error \
        -verify_hostname bmc-07.example.org -CAfile "$BMC_SIM_ACME_ROOT" </dev/null 2>&1 || true)
    grep -q '^Verify return code: 0' <<<"$verified" && break
    sleep 0.2
done
grep -E '^(subject|issuer)=|^Verify return code' <<<"$verified"
grep -q '^Verify return code: 0' <<<"$verified"
