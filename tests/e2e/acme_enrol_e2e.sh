#!/usr/bin/env bash
# The library's own ACME enrolment against a real pebble, inside
# `bmc-sandbox --services --private-network --acme --acme-eab
# --acme-validity 90`, with pebble refusing half of the good nonces and
# reusing every authorisation: registration with external account binding
# (a wrong MAC key refused, the key never shown), an order for a name and
# an address validated over plain HTTP against the web server and
# installed (both services verified by s_client, the web server by curl,
# the health record's renewal line), `renew --if-due` not before the due time and renewing after
# it, the CA stopped in the middle of an order (the old certificate
# served, nothing left behind, a clean retry), the key's rollover and the
# account's deactivation.
#   usage: acme_enrol_e2e.sh PATH-TO-BMCCERT
set -u
tool=${1:?usage: acme_enrol_e2e.sh PATH-TO-BMCCERT}
. /var/lib/bmc-sim/services.env
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work" || exit 1
passed=0 failed=0
check() {  # NAME COMMAND...
    if "${@:2}"; then passed=$((passed + 1)); else failed=$((failed + 1)); echo "FAIL: $1" >&2; fi
}
host=bmc-07.example.org
served_serial() {
    timeout 10 openssl s_client -connect "127.0.0.1:$BMC_SIM_HTTPS_PORT" </dev/null 2>/dev/null |
        openssl x509 -noout -serial 2>/dev/null
}
# A verified handshake, judged by the verification's own line (the tunnel
# may reset the connection once the handshake is done).
verifies() {  # [PORT [s_client options]]: by name against pebble's root
    timeout 10 openssl s_client -connect "127.0.0.1:${1:-$BMC_SIM_HTTPS_PORT}" -verify_return_error \
        -CAfile "$BMC_SIM_ACME_ROOT" -verify_hostname "$host" "${@:2}" </dev/null 2>&1 |
        grep -q '^Verify return code: 0 (ok)$'
}
serves_new() {  # OLD-SERIAL: the web server serves another certificate within seconds
    for _ in $(seq 50); do
        [ "$(served_serial)" != "$1" ] && verifies && return 0
        sleep 0.2
    done
    return 1
}
field() { "$tool" acme status --json | python3 -c "import json,sys; print(json.load(sys.stdin)['$1'])"; }
register() {  # MAC-KEY-FILE
    "$tool" acme register --directory "$BMC_SIM_ACME_DIRECTORY" --email "ops@$host" --agree-tos \
        --ca-file "$BMC_SIM_ACME_TLS_CA" --eab-kid "$BMC_SIM_ACME_EAB_KID" --eab-key-file "$1" "${@:2}"
}
order=(acme order --cn "$host" --org Lab --ou Platform --locality Town --state North --country DE
    --email "ops@$host" --dns "$host" --ip 127.0.0.1 --enable)
mac=$(cat "$BMC_SIM_ACME_EAB_KEY_FILE")
# Another 48-byte key, base64url as the package's.
head -c 48 /dev/urandom | base64 -w0 | tr '+/' '-_' >wrong.key

register wrong.key >out.txt 2>&1
check "a wrong binding key is refused" grep -q 0x8A000065 out.txt
register "$BMC_SIM_ACME_EAB_KEY_FILE" >>out.txt 2>&1
check "the right one registers" test "$(field account)" = valid
check "the MAC key is deleted once spent" test "$(field eab_key_stored)" = False
check "the account key is private" test "$(stat -c %a /conf/acme/account.key)" = 600

old=$(served_serial)
"$tool" "${order[@]}" >>out.txt 2>&1
check "an order validated over plain HTTP is installed" test $? -eq 0
check "the web server serves it, verified by name against pebble's root" serves_new "$old"
check "... and the tunnel, by name and by address" verifies "$BMC_SIM_TUNNEL_PORT" -verify_ip 127.0.0.1
check "... and curl verifies the web server by name" curl -s -o /dev/null --max-time 10 \
    --cacert "$BMC_SIM_ACME_ROOT" --resolve "$host:$BMC_SIM_HTTPS_PORT:127.0.0.1" "https://$host:$BMC_SIM_HTTPS_PORT/"
check "no challenge file is left" test -z "$(ls -A "$BMC_SIM_ACME_CHALLENGE_DIR")"
check "the health check shows the next renewal" bash -c "'$tool' check | grep -q '^ok      enrolment: next renewal 20.*; last attempt .* succeeded$'"

"$tool" acme renew --if-due >renew.txt 2>&1
check "renew --if-due before the due time does nothing" grep -qx "not due" renew.txt
due=$(date -d "$(field next_renewal)" +%s)
check "the due time lies within the 90 s lifetime" test "$due" -gt "$(date +%s)" -a "$due" -lt "$(($(date +%s) + 90))"
sleep $((due - $(date +%s) + 1))
old=$(served_serial)
"$tool" acme renew --if-due >>out.txt 2>&1
check "after it, the timer's renew renews" serves_new "$old"

# The CA goes away in the middle of an order: a name not yet authorised
# makes it validate, and pebble is frozen as soon as the challenge file is
# written (its requests hang, then fail when the stop kills it).
old=$(served_serial)
pebble=$(pgrep -x pebble)
"$tool" "${order[@]}" --dns "b.$host" >stopped.txt 2>&1 &
renewal=$!
for _ in $(seq 2000); do
    [ -n "$(ls -A "$BMC_SIM_ACME_CHALLENGE_DIR")" ] && break
    sleep 0.005
done
kill -STOP "$pebble"
systemctl stop pebble.service
wait "$renewal"
check "an order cut off by the CA fails" test $? -ne 0
check "... with the old certificate served" test "$(served_serial)" = "$old"
check "... no challenge file left" test -z "$(ls -A "$BMC_SIM_ACME_CHALLENGE_DIR")"
check "... no pending key left" bash -c "! '$tool' csr --show >/dev/null 2>&1"
check "... and the failure counted with a back-off" test "$(field failures)" = 1
check "... and warned of by the health check" bash -c "'$tool' check | grep -q '^warning enrolment: .* failed (0x8A0000.., 1 in a row); next attempt after '"
systemctl start pebble.service && . /var/lib/bmc-sim/services.env
# A started pebble forgets its accounts and makes a new root.
register "$BMC_SIM_ACME_EAB_KEY_FILE" >>out.txt 2>&1
"$tool" acme renew >>out.txt 2>&1
check "a clean retry afterwards" serves_new "$old"
check "... clears the failures" test "$(field failures)" = 0

thumbprint=$(field key_thumbprint)
"$tool" acme roll-key >>out.txt 2>&1
check "the account key rolls over" test "$(field key_thumbprint)" != "$thumbprint"
old=$(served_serial)
"$tool" acme renew >>out.txt 2>&1
check "... and the new key orders" serves_new "$old"
"$tool" acme deactivate >>out.txt 2>&1
check "the account is deactivated" test "$(field account)" = deactivated
"$tool" acme renew >>out.txt 2>&1
check "... and orders no more" test $? -ne 0
check "the MAC key never reached the output or the diagnostics" \
    bash -c "! grep -qF -- '$mac' out.txt renew.txt stopped.txt /var/lib/bmc-sim/diag.log 2>/dev/null"

echo "$passed passed, $failed failed"
[ "$failed" -eq 0 ]
