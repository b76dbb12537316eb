#!/usr/bin/env bash
# End to end with a real CA: runs inside `bmc-sandbox --services`. A lab CA
# (`openssl ca` with its databases: a root, and an intermediate that signs)
# signs the controller's own signing request for bmc-07.example.org and
# 127.0.0.1; the answer, leaf then intermediate, is installed with
# `bmccert install-signed`, after which TLS clients that trust only the
# root verify both the tunnel and the web server by name, for an RSA and an
# EC key. Answers that must be refused leave the certificate in service;
# a self-signed certificate with names verifies by name against itself.
#   usage: ca_e2e.sh PATH-TO-BMCCERT
set -u
tool=${1:?usage: ca_e2e.sh PATH-TO-BMCCERT}
. /var/lib/bmc-sim/services.env
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work" || exit 1
passed=0 failed=0
check() {  # NAME COMMAND...
    if "${@:2}"; then passed=$((passed + 1)); else failed=$((failed + 1)); echo "FAIL: $1" >&2; fi
}
host=bmc-07.example.org
ports=("$BMC_SIM_TUNNEL_PORT" "$BMC_SIM_HTTPS_PORT")

# --- the lab CA (the machine's own openssl tool, whatever openssl the suite
# tests first on PATH) ---------------------------------------------------------------------
export CADIR=$work
ossl=/usr/bin/openssl
cat >ca.cnf <<'EOF'
[ req ]
distinguished_name = dn
[ dn ]
[ root ]
dir = $ENV::CADIR/root
database = $dir/index.txt
serial = $dir/serial
new_certs_dir = $dir
certificate = $dir/ca.pem
private_key = $dir/ca.key
default_md = sha256
default_days = 30
policy = any
unique_subject = no
x509_extensions = ca_ext
[ inter ]
dir = $ENV::CADIR/inter
database = $dir/index.txt
serial = $dir/serial
new_certs_dir = $dir
certificate = $dir/ca.pem
private_key = $dir/ca.key
default_md = sha256
default_days = 30
policy = any
unique_subject = no
copy_extensions = copy
x509_extensions = leaf_ext
[ any ]
commonName = supplied
[ ca_ext ]
basicConstraints = critical,CA:TRUE
keyUsage = critical,keyCertSign,cRLSign
subjectKeyIdentifier = hash
authorityKeyIdentifier = keyid
[ leaf_ext ]
basicConstraints = CA:FALSE
subjectKeyIdentifier = hash
authorityKeyIdentifier = keyid
EOF
for ca in root inter; do mkdir "$ca" && : >"$ca/index.txt" && echo 1000 >"$ca/serial"; done
"$ossl" req -x509 -config ca.cnf -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -days 30 \
    -keyout root/ca.key -out root/ca.pem -subj '/O=Lab/CN=Lab Root' \
    -addext basicConstraints=critical,CA:TRUE -addext keyUsage=critical,keyCertSign,cRLSign 2>/dev/null
"$ossl" req -new -config ca.cnf -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes \
    -keyout inter/ca.key -out inter.csr -subj '/O=Lab/CN=Lab Intermediate' 2>/dev/null
"$ossl" ca -batch -config ca.cnf -name root -notext -in inter.csr -out inter/ca.pem 2>/dev/null
check "the lab CA stands" "$ossl" verify -CAfile root/ca.pem inter/ca.pem
sign() {  # CSR OUT ["$ossl" ca options]: OUT signed by the intermediate
    "$ossl" ca -batch -config ca.cnf -name inter -notext -in "$1" -out "$2" "${@:3}" 2>/dev/null
}

# --- clients that trust the root ---------------------------------------------------------
# A verified handshake by name; judged by the verification's own line, as
# the tunnel may reset the connection once the handshake is done (nothing
# listens behind it).
verifies() {  # PORT CAFILE [s_client options]
    timeout 10 openssl s_client -connect "127.0.0.1:$1" -servername "$host" -verify_return_error \
        -verify_hostname "$host" -CAfile "$2" "${@:3}" </dev/null 2>&1 |
        grep -q '^Verify return code: 0 (ok)$'
}
fetches() {  # PORT CAFILE: curl with hostname verification (the web server answers)
    curl -s -o /dev/null --max-time 10 --cacert "$2" --resolve "$host:$1:127.0.0.1" \
        "https://$host:$1/"
}
served_serial() {  # PORT
    timeout 10 openssl s_client -connect "127.0.0.1:$1" </dev/null 2>/dev/null |
        openssl x509 -noout -serial 2>/dev/null
}
# Both ports serve CERT and verify it by name against CAFILE within a few
# seconds (the web server restarts 2 s after the tunnel).
both_serve() {  # CERT CAFILE
    local want port
    want=$(openssl x509 -noout -serial -in "$1")
    for _ in $(seq 75); do
        for port in "${ports[@]}"; do
            [ "$(served_serial "$port")" = "$want" ] && verifies "$port" "$2" ||
                { sleep 0.2; continue 2; }
        done
        return 0
    done
    return 1
}
subject=(--cn "$host" --org Lab --ou Platform --locality Town --state North --country DE
         --email "ops@$host")

# --- a signed certificate for each key type ------------------------------------------------
for key in rsa2048 p256; do
    "$tool" csr "${subject[@]}" --key "$key" --dns "$host" --ip 127.0.0.1 --out "$key.csr" >/dev/null
    check "$key: the request is made and signed" sign "$key.csr" "$key.pem"
    cat "$key.pem" inter/ca.pem >"$key.answer"
    check "$key: install-signed finishes" "$tool" install-signed "$key.answer" >/dev/null
    check "$key: both ports serve it, verified by name against the root" both_serve "$key.pem" root/ca.pem
    check "$key: ... and by address on the tunnel" verifies "${ports[0]}" root/ca.pem -verify_ip 127.0.0.1
    check "$key: curl verifies $host on the web server" fetches "${ports[1]}" root/ca.pem
    check "$key: bmccert check finds nothing wrong" "$tool" check --tunnel-port "${ports[0]}" --web-port "${ports[1]}"
done

# --- answers refused, each with its code, the certificate in service kept ------------------
in_service=$(served_serial "${ports[0]}")
"$tool" csr "${subject[@]}" --dns "$host" --out next.csr >/dev/null
"$ossl" req -new -config ca.cnf -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes \
    -keyout other.key -out other.csr -subj "/CN=$host" 2>/dev/null
sign other.csr other.pem && cat other.pem inter/ca.pem >other.answer
sign next.csr next.pem && cat inter/ca.pem next.pem >misordered.answer
sign next.csr expired.pem -startdate 20200101000000Z -enddate 20200201000000Z &&
    cat expired.pem inter/ca.pem >expired.answer
while read -r answer code; do
    out=$("$tool" install-signed "$answer.answer" 2>&1)
    check "$answer: refused with $code" test "$?/${out##*: }" = "1/$code"
    for port in "${ports[@]}"; do
        check "$answer: $port still serves the certificate in force" \
            test "$(served_serial "$port")" = "$in_service"
    done
done <<'EOF'
other 0x8A000014
misordered 0x8A000018
expired 0x8A000016
EOF
check "the pending key survives the refusals" "$tool" csr --show >/dev/null
sign next.csr good.pem && cat good.pem inter/ca.pem >good.answer
check "... and takes its answer after them" "$tool" install-signed good.answer >/dev/null
check "both ports serve it" both_serve good.pem root/ca.pem

# --- a self-signed certificate with names verifies against itself ---------------------------
"$tool" generate "${subject[@]}" --key p256 --dns "$host" --ip 127.0.0.1 --days 30 >/dev/null
check "generate with names succeeds" test $? -eq 0
cp /conf/certs/server/user/actualcert.pem self.pem
check "both ports serve it, verified by name against itself" both_serve self.pem self.pem
check "bmccert check finds nothing wrong" "$tool" check --tunnel-port "${ports[0]}" --web-port "${ports[1]}"

echo "$passed passed, $failed failed"
[ "$failed" -eq 0 ]
