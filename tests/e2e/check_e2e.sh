#!/usr/bin/env bash
# `bmccert check` against the real services: runs inside `bmc-sandbox
# --services --private-network`. A freshly generated certificate is served
# and checks clean; a pair installed while the service manager restarts
# nothing is named as not served by either service until both restart.
# Without port options the check reaches the ports of the controller's own
# files, where nothing listens in the sandbox's private network.
#   usage: check_e2e.sh PATH-TO-BMCCERT
set -u
tool=${1:?usage: check_e2e.sh PATH-TO-BMCCERT}
. /var/lib/bmc-sim/services.env
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
passed=0 failed=0 status=0
check() {  # NAME COMMAND...
    if "${@:2}"; then passed=$((passed + 1)); else failed=$((failed + 1)); echo "FAIL: $1" >&2; cat "$work/out" >&2; fi
}
run() { "$tool" check "$@" >"$work/out" 2>&1; status=$?; }
on_sandbox_ports() { run --tunnel-port "$BMC_SIM_TUNNEL_PORT" --web-port "$BMC_SIM_HTTPS_PORT" "$@"; }
# Until it finds nothing wrong (the web server restarts 2 seconds after an
# installation returns).
clean_within_10s() {
    for _ in $(seq 50); do on_sandbox_ports; [ "$status" -eq 0 ] && return 0; sleep 0.2; done
    return 1
}
has() { grep -qxF -- "$1" "$work/out"; }
serial() { openssl x509 -noout -serial -in "$1" | sed 's/^serial=//'; }
user_cert=/conf/certs/server/user/actualcert.pem

"$tool" generate --cn bmc.local --org 'Test Works' --ou Lab --locality Town --state North \
    --country DE --email ops@bmc.local --key-length 2048 >/dev/null 2>&1
check "generate succeeds" test $? -eq 0
check "the generated certificate checks clean" clean_within_10s
old=$(serial "$user_cert")
check "the tunnel serves it" \
    has "ok      tunnel: serves the certificate in force, serial $old (port $BMC_SIM_TUNNEL_PORT)"
check "no fault, no warning" has "nothing wrong"

# A pair installed through a service manager that restarts nothing.
openssl req -x509 -newkey rsa:2048 -nodes -keyout "$work/new.key" -out "$work/new.crt" -days 20 \
    -subj /CN=bmc.local -addext subjectAltName=DNS:bmc.local 2>/dev/null
mkdir "$work/bin" && printf '#!/bin/sh\nexit 0\n' >"$work/bin/systemctl" && chmod +x "$work/bin/systemctl"
PATH="$work/bin:$PATH" "$tool" install "$work/new.crt" "$work/new.key" >/dev/null 2>&1
check "installed" test "$(serial "$user_cert")" = "$(serial "$work/new.crt")"
new=$(serial "$work/new.crt")
on_sandbox_ports
check "the check fails" test "$status" -eq 1
check "the tunnel is named as serving the previous certificate" has "fault   tunnel: serves serial \
$old (port $BMC_SIM_TUNNEL_PORT), the certificate in force is serial $new: restart stunnel.service"
check "so is the web server" has "fault   web server: serves serial $old (port $BMC_SIM_HTTPS_PORT), \
the certificate in force is serial $new: restart lighttpd.service"
# 19 whole days and some hours left, or 20 where the tool that made it
# rounded its dates up.
check "20 days left is a warning" grep -qE "^warning certificate: serial $new: expires in (19|20) days" "$work/out"
on_sandbox_ports --json
check "--json says ok=false" python3 -c 'import json, sys
d = json.load(open(sys.argv[1])); f = {x["subject"]: x["severity"] for x in d["findings"]}
sys.exit(not (d["ok"] is False and f["tunnel"] == f["web server"] == "fault"))' "$work/out"

systemctl restart stunnel.service lighttpd.service
check "after both restart: clean again" clean_within_10s
check "... with the new certificate" \
    has "ok      web server: serves the certificate in force, serial $new (port $BMC_SIM_HTTPS_PORT)"

run
check "the files' own ports: nothing listens" test "$status" -eq 1
check "... on the tunnel's" has "fault   tunnel: port 7582: connection refused: restart stunnel.service"
check "... nor on the web server's" \
    has "fault   web server: port 443: connection refused: restart lighttpd.service"

echo "$passed passed, $failed failed"
[ "$failed" -eq 0 ]
