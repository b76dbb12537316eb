#!/usr/bin/env bash
# End to end with a real CA: runs inside `bmc-sandbox --services
# --private-network`. A lab CA (a root, and an intermediate run by
# `openssl ca` with its database) signs the controller's own signing
# request for bmc-07.example.org and 127.0.0.1; the answer, leaf then
# intermediate, is installed with `bmccert install-signed`, after which
# TLS clients that trust only the root verify both the tunnel and the web
# server by name, for an RSA and an EC key (the answers refused are the
# library's and the tool's tests'); a self-signed certificate with names
# verifies by name against itself; `bmccert check` finds nothing wrong
# after each installation and names a certificate installed but not served.
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
# The root signs the intermediate once; the intermediate is a CA with its
# database, as an organisation's issuing CA is. (`req -x509 -CA` is the
# openssl tool's 3.0 and later.)
cat >ca.cnf <<'EOF'
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
[ leaf_ext ]
basicConstraints = CA:FALSE
subjectKeyIdentifier = hash
authorityKeyIdentifier = keyid
EOF
mkdir root inter && : >inter/index.txt && echo 1000 >inter/serial
ca_cert() {  # DIR SUBJECT [req options]: a CA's certificate and key in DIR
    "$ossl" req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -days 30 -keyout "$1/ca.key" \
        -out "$1/ca.pem" -subj "$2" -addext basicConstraints=critical,CA:TRUE \
        -addext keyUsage=critical,keyCertSign,cRLSign "${@:3}" 2>/dev/null
}
ca_cert root '/O=Lab/CN=Lab Root'
ca_cert inter '/O=Lab/CN=Lab Intermediate' -CA root/ca.pem -CAkey root/ca.key
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
serial() { openssl x509 -noout -serial 2>/dev/null | sed 's/^serial=//'; }
served_serial() { timeout 10 openssl s_client -connect "127.0.0.1:$1" </dev/null 2>/dev/null | serial; }
# Both ports serve CERT and verify it by name against CAFILE within a few
# seconds (the web server restarts 2 s after the tunnel).
both_serve() {  # CERT CAFILE
    local want port
    want=$(serial <"$1")
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
    check "$key: bmccert check finds nothing wrong (the sandbox's ports, no options)" "$tool" check
done

# --- a self-signed certificate with names, installed while the service manager
# restarts nothing: the health check names it as not served; after the restarts
# both ports serve it, verified by name against itself ------------------------------------
old=$(serial <p256.pem)
mkdir bin && printf '#!/bin/sh\nexit 0\n' >bin/systemctl && chmod +x bin/systemctl
PATH="$work/bin:$PATH" "$tool" generate "${subject[@]}" --key p256 --dns "$host" --ip 127.0.0.1 \
    --days 30 >/dev/null
check "generate with names succeeds" test $? -eq 0
cp /conf/certs/server/user/actualcert.pem self.pem
new=$(serial <self.pem)
health() { "$tool" check "$@" >health.out 2>&1; }
health --tunnel-port "${ports[0]}" --web-port "${ports[1]}" --json
check "the check fails, ok:false" test "$?/$(grep -c '"ok":false' health.out)" = 1/1
health --tunnel-port "${ports[0]}" --web-port "${ports[1]}"
check "the tunnel is named as serving the previous certificate" grep -qxF "fault   tunnel: serves serial \
$old (port ${ports[0]}), the certificate in force is serial $new: restart stunnel.service" health.out
check "so is the web server" grep -qxF "fault   web server: serves serial $old (port ${ports[1]}), \
the certificate in force is serial $new: restart lighttpd.service" health.out
systemctl restart stunnel.service lighttpd.service
check "after both restart they serve it, verified by name against itself" both_serve self.pem self.pem
check "bmccert check finds nothing wrong" "$tool" check --tunnel-port "${ports[0]}" --web-port "${ports[1]}"
# With the sandbox's ports blanked the check reads the ports of the
# services' own files, where nothing listens in the sandbox.
BMC_SIM_TUNNEL_PORT='' BMC_SIM_HTTPS_PORT='' health
check "the files' own ports: nothing listens" grep -qxF \
    "fault   tunnel: port 7582: connection refused: restart stunnel.service" health.out
check "... nor on the web server's" grep -qxF \
    "fault   web server: port 443: connection refused: restart lighttpd.service" health.out

echo "$passed passed, $failed failed"
[ "$failed" -eq 0 ]
