#!/usr/bin/env bash
# End to end with a real ACME authority: runs inside `bmc-sandbox
# --services --private-network --acme`. uacme, the reference client,
# registers with pebble and has the controller's own signing request for
# bmc-07.example.org and 127.0.0.1 issued through http-01: its hook writes
# the key authorisation into the challenge directory, which pebble fetches
# from the web server's plain-HTTP port (its DNS server resolves every name
# to 127.0.0.1). The answer goes in with `bmccert install-signed`, after
# which a client trusting only pebble's root verifies the web server by
# name and by address. The plain-HTTP port serves nothing but challenge
# files. (The authority stopped mid-order is acme_enrol_e2e's.)
#   usage: acme_e2e.sh PATH-TO-BMCCERT
set -u
tool=${1:?usage: acme_e2e.sh PATH-TO-BMCCERT}
here=$(cd "$(dirname "$0")" && pwd)
. /var/lib/bmc-sim/services.env
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work" || exit 1
passed=0 failed=0
check() {  # NAME COMMAND...
    if "${@:2}"; then passed=$((passed + 1)); else failed=$((failed + 1)); echo "FAIL: $1" >&2; fi
}
host=bmc-07.example.org
challenges=$BMC_SIM_ACME_CHALLENGE_DIR

. "$here/uacme_client.sh" "$work"
http_status() {  # PATH
    curl -s --noproxy '*' -o /dev/null -w '%{http_code}' "http://127.0.0.1:$BMC_SIM_HTTP_PORT$1"
}
verifies() {  # s_client verification options...
    timeout 10 openssl s_client -connect "127.0.0.1:$BMC_SIM_HTTPS_PORT" -servername "$host" \
        -verify_return_error -CAfile "$BMC_SIM_ACME_ROOT" "$@" </dev/null 2>&1 |
        grep -q '^Verify return code: 0 (ok)$'
}

# --- the plain-HTTP port serves challenge files as they are, and nothing else
printf 'tok.thumb' >"$challenges/Tok_en-1"
check "a challenge file is served as it is" \
    test "$(curl -s --noproxy '*' "http://127.0.0.1:$BMC_SIM_HTTP_PORT/.well-known/acme-challenge/Tok_en-1")" = tok.thumb
for path in / /index.html /login /.well-known/acme-challenge/ /.well-known/acme-challenge/absent \
    /.well-known/acme-challenge/../../index.html; do
    check "plain HTTP $path is not found" test "$(http_status "$path")" = 404
done
ln -s /conf/certs/server/server.pem "$challenges/Linked"
check "a link in the challenge directory is refused" \
    test "$(http_status /.well-known/acme-challenge/Linked)" = 403
rm -f "$challenges/Tok_en-1" "$challenges/Linked"

# --- registration, issuance of the controller's request, installation
check "uacme registers" acme new ops@example.org
"$tool" csr --cn "$host" --org Lab --ou Platform --locality Town --state North --country DE \
    --email "ops@$host" --dns "$host" --ip 127.0.0.1 --out "$work/bmc.csr" >/dev/null
check "uacme has the controller's request issued through http-01" acme issue "$work/bmc.csr"
check "the hook removed its challenge files" test -z "$(ls -A "$challenges")"
check "install-signed takes the authority's chain" "$tool" install-signed "$work/bmc-cert.pem"
for _ in $(seq 50); do verifies -verify_hostname "$host" && break; sleep 0.2; done
check "the web server verifies by name against pebble's root" verifies -verify_hostname "$host"
check "... and by address" verifies -verify_ip 127.0.0.1

echo "$passed passed, $failed failed"
[ "$failed" -eq 0 ]
