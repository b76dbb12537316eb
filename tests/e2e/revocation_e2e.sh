#!/usr/bin/env bash
# Revocation end to end: runs inside `bmc-sandbox --services
# --private-network`. A CA run by `openssl ca` (its database, its lists
# made by `openssl ca -gencrl`) issues an operator's and an intruder's
# client certificates and the certificates of its OCSP responders; the
# openssl tool answers as the responder. Under verified OCSP a revoked
# certificate is refused however a rogue responder answers, as are answers
# of a delegated signer without the OCSP-signing purpose and an old answer
# replayed; the published command lets the rogue's "good" through, which
# the test records as that method's known weakness. With the CA's list the
# web server refuses the revoked certificate at the handshake and the
# login check refuses it too, while the good one logs in.
#   usage: revocation_e2e.sh PATH-TO-BMCCERT
set -u
tool=${1:?usage: revocation_e2e.sh PATH-TO-BMCCERT}
. /var/lib/bmc-sim/services.env
work=$(mktemp -d)
pids=()
stop_all() {
    local pid
    for pid in "${pids[@]}"; do kill "$pid" 2>/dev/null && wait "$pid" 2>/dev/null; done
    pids=()
}
trap 'stop_all; rm -rf "$work"' EXIT
cd "$work" || exit 1
passed=0 failed=0
check() {  # NAME COMMAND...
    if "${@:2}"; then passed=$((passed + 1)); else failed=$((failed + 1)); echo "FAIL: $1" >&2; fi
}
# Fixtures come from the machine's own tool, whatever openssl the suite
# tests first on PATH.
ossl=/usr/bin/openssl

# --- the CA ---------------------------------------------------------------------------
export CADIR=$work
cat >ca.cnf <<'EOF'
[ ca ]
default_ca = lab
[ lab ]
dir = $ENV::CADIR
database = $dir/index.txt
serial = $dir/serial
crlnumber = $dir/crlnumber
new_certs_dir = $dir/issued
certificate = $dir/root.pem
private_key = $dir/root.key
default_md = sha256
default_days = 10
default_crl_days = 7
policy = any
unique_subject = no
copy_extensions = copy
x509_extensions = client_ext
[ any ]
commonName = supplied
[ client_ext ]
basicConstraints = CA:FALSE
extendedKeyUsage = clientAuth
authorityKeyIdentifier = keyid
authorityInfoAccess = OCSP;URI:$ENV::OCSP_URL
crlDistributionPoints = URI:http://127.0.0.1:9/lab.crl
[ ocsp_ext ]
basicConstraints = CA:FALSE
extendedKeyUsage = OCSPSigning
[ plain_ext ]
basicConstraints = CA:FALSE
EOF
mkdir issued && : >index.txt && echo 1000 >serial && echo 01 >crlnumber
"$ossl" req -x509 -newkey rsa:2048 -nodes -days 30 -keyout root.key -out root.pem \
    -subj '/O=Lab/CN=Lab Root' -addext basicConstraints=critical,CA:TRUE \
    -addext keyUsage=critical,keyCertSign,cRLSign 2>/dev/null
# The responders' port is fixed before the client certificates name it.
export OCSP_URL=http://127.0.0.1:$(shuf -i 20000-29999 -n 1)/
port=${OCSP_URL##*:}
port=${port%/}
issue() {  # NAME EXTENSIONS: NAME.pem and NAME.key, issued by the CA
    "$ossl" req -newkey rsa:2048 -nodes -keyout "$1.key" -out "$1.csr" -subj "/CN=$1" 2>/dev/null &&
        "$ossl" ca -batch -config ca.cnf -extensions "$2" -in "$1.csr" -out "$1.pem" 2>/dev/null
}
issue operator client_ext && issue revoked client_ext && issue responder ocsp_ext &&
    issue plain-signer plain_ext
check "the CA issues the fixtures" test $? -eq 0
"$ossl" req -x509 -newkey rsa:2048 -nodes -days 30 -keyout rogue.key -out rogue.pem \
    -subj '/CN=Lab Root' 2>/dev/null
"$ossl" ca -batch -config ca.cnf -revoke revoked.pem 2>/dev/null
check "the CA revokes one" grep -q '^R' index.txt

# A responder answering from the CA's database (or, for the rogue, an index
# that says "good" for everything it is asked about).
respond() {  # SIGNER [INDEX]
    stop_all
    : >responder.out
    "$ossl" ocsp -index "${2:-index.txt}" -port "$port" -rsigner "$1.pem" -rkey "$1.key" \
        -CA root.pem -ignore_err >responder.out 2>/dev/null &
    pids+=($!)
    for _ in $(seq 50); do grep -q '^ACCEPT' responder.out && return 0; sleep 0.1; done
    echo "responder $1 did not start" >&2
    return 1
}

# --- the controller's set-up ---------------------------------------------------------
bmc-sim user set 3 operator --role 3 --password operator-password >/dev/null &&
    "$tool" roots import root.pem >/dev/null && "$tool" clients import operator.pem --root 1 >/dev/null &&
    "$tool" clients import revoked.pem --root 1 >/dev/null && "$tool" bind 1 2 >/dev/null &&
    "$tool" bind 2 3 >/dev/null && "$tool" auth enable 1 >/dev/null &&
    "$tool" auth revocation on >/dev/null
check "imported, bound, authentication and revocation checking on" test $? -eq 0
login() {  # NAME: "BODY STATUS" of /login presenting NAME's certificate
    curl -sk --max-time 20 -w ' %{http_code}' --cert "$1.pem" --key "$1.key" \
        "https://127.0.0.1:$BMC_SIM_HTTPS_PORT/login" | tr -d '\n'
}
refused="0x18000E17 403"
method() { "$tool" revocation set --method "$1" >/dev/null; }

# --- OCSP ---------------------------------------------------------------------------------
printf 'V\t340101000000Z\t\t%s\tunknown\t/CN=any\n' "$("$ossl" x509 -noout -serial -in revoked.pem |
    sed 's/serial=//')" >rogue-index.txt
respond rogue rogue-index.txt
method command
check "known weakness of the published command: a rogue's 'good' lets the revoked in" \
    bash -c "[[ '$(login revoked)' == *' 200' ]]"
method ocsp
check "verified OCSP: the rogue's answer is refused" test "$(login revoked)" = "$refused"

respond responder
check "verified OCSP: good logs in" test "$(login operator)" = "admin 200"
check "verified OCSP: revoked is refused" test "$(login revoked)" = "$refused"

respond plain-signer
check "a delegated signer without OCSP signing is refused" test "$(login operator)" = "$refused"

# An answer of the real responder, without a nonce, replayed once it is
# older than the maximum age allowed.
respond responder
"$ossl" ocsp -issuer root.pem -cert operator.pem -url "$OCSP_URL" -no_nonce -respout old.der \
    >/dev/null 2>&1
stop_all
"$tool" revocation set --max-age 1 --clock-skew 0 >/dev/null
sleep 2
python3 - "$port" old.der >replay.out 2>&1 <<'EOF' &
import http.server, sys
answer = open(sys.argv[2], 'rb').read()
class Replay(http.server.BaseHTTPRequestHandler):
    def do_POST(self):
        self.rfile.read(int(self.headers.get('Content-Length', 0)))
        self.send_response(200)
        self.send_header('Content-Type', 'application/ocsp-response')
        self.send_header('Content-Length', str(len(answer)))
        self.end_headers()
        self.wfile.write(answer)
    def log_message(self, *args):
        pass
http.server.HTTPServer(('127.0.0.1', int(sys.argv[1])), Replay).serve_forever()
EOF
pids+=($!)
sleep 0.5
check "an old answer replayed is refused as stale" test "$(login operator)" = "$refused"
stop_all
"$tool" revocation set --max-age 604800 --clock-skew 300 >/dev/null

# --- the CA's list ---------------------------------------------------------------------
"$ossl" ca -batch -config ca.cnf -gencrl -out lab.crl 2>/dev/null
check "the CA makes its list" test -s lab.crl
method crl
check "the list is installed" "$tool" crl add 1 lab.crl
check "the web server refuses the revoked certificate at the handshake" \
    bash -c "! curl -sk --max-time 20 --cert revoked.pem --key revoked.key -o /dev/null \
        https://127.0.0.1:$BMC_SIM_HTTPS_PORT/login"
check "the good one gets its answer" test "$(login operator)" = "admin 200"
# The login program itself, as the web server would run it for a client
# certificate it had verified.
login_check() {
    SSL_CLIENT_VERIFY=SUCCESS SSL_CLIENT_CERT=$(cat "$1.pem") cert-login | tail -1
}
check "the login check refuses the revoked one too" test "$(login_check revoked)" = 0x18000E17
check "... and lets the good one in" test "$(login_check operator)" = admin
check "a list signed by another key is refused, the old one kept" \
    bash -c "sed 's/root/rogue/' ca.cnf >rogue.cnf && cp index.txt index.rogue &&
        $ossl ca -batch -config rogue.cnf -keyfile rogue.key -cert rogue.pem -gencrl \
            -out rogue.crl 2>/dev/null; ! '$tool' crl add 1 rogue.crl >/dev/null 2>&1 &&
        cmp -s <($ossl crl -in /conf/certs/root/\$(ls /conf/certs/root | grep -v crl | head -1).crl \
            -outform DER) <($ossl crl -in lab.crl -outform DER)"

echo "$passed passed, $failed failed"
[ "$failed" -eq 0 ]
