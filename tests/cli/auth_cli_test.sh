#!/usr/bin/env bash
# The client-certificate commands of bmccert and the user administration
# of bmc-sim against a factory-fresh controller: result lines, exit
# statuses and the single failure line. Runs inside bmc-sandbox; TOOL may
# be a wrapper that runs the tool (under valgrind).
#   usage: auth_cli_test.sh TOOL PATH-TO-BMC-SIM
set -u
tool=${1:?usage: auth_cli_test.sh PATH-TO-BMCCERT PATH-TO-BMC-SIM}
sim=${2:?usage: auth_cli_test.sh PATH-TO-BMCCERT PATH-TO-BMC-SIM}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
passed=0 failed=0 status=0 out='' err=''

run() {
    "$@" >"$work/out" 2>"$work/err"
    status=$?
    out=$(<"$work/out")
    err=$(<"$work/err")
}
expect() {  # NAME EXPECTED: "status/stdout/stderr" of the last run
    if [[ "$status/$out/$err" == "$2" ]]; then
        passed=$((passed + 1))
    else
        failed=$((failed + 1))
        printf 'FAIL: %s\n  got:  [%s]\n  want: [%s]\n' "$1" "$status/$out/$err" "$2"
    fi
}

openssl req -x509 -newkey rsa:2048 -nodes -keyout "$work/root.key" -out "$work/root.pem" \
    -days 30 -subj '/CN=CLI Root' 2>/dev/null
openssl req -newkey rsa:2048 -nodes -keyout "$work/op.key" -subj /CN=op 2>/dev/null |
    openssl x509 -req -CA "$work/root.pem" -CAkey "$work/root.key" -set_serial 0x1F00 -days 9 \
        -out "$work/op.crt" 2>/dev/null

# --- bmc-sim users ------------------------------------------------------------------
run "$sim" user list
expect "factory users" $'0/1\tanonymous\tNo Access\tanonymous\n2\tadmin\tAdministrator/'
run "$sim" user set 3 operator --role 3 --password op-pass
expect "user set" "0//"
run "$sim" user del 9
expect "deleting an absent user" "1//bmc-sim: no user 9"

# --- state and switches ----------------------------------------------------------------
run "$tool" auth status
expect "factory state" $'0/support: 1\nauthentication: off\nrevocation check: off\nactive root: none/'
run "$tool" auth enable 1
expect "enable without a root" "1//bmccert: Failed to set certificate authentication status.: 0x1800040F"

# --- certificates, bindings, login ----------------------------------------------------
run "$tool" roots import "$work/root.pem"
expect "root import follows its task" "0/task 1: finished, 100%: Root Cert import successfully/"
run "$tool" clients import "$work/op.crt" --root 3
expect "a refused import" \
    "1//bmccert: import refused (details in /var/lib/bmc-sim/diag.log): 0x1800060F"
run "$tool" clients import "$work/op.crt" --root 1
expect "client import" "0/task 2: finished, 100%: Client Cert import successfully/"
run "$tool" bind 1 3
expect "bind" "0/Bound client certificate to user successfully. Certificate: op.crt, user: operator./"
run "$tool" auth enable 1
expect "enable" "0/Turned on certificate authentication state successfully./"
run "$tool" roots
expect "the roots listed" "0/1 active root.pem expires $(openssl x509 -noout -enddate -in "$work/root.pem" | cut -d= -f2)/"
run "$tool" login --serial 1F00
expect "login prints the name only" "0/operator/"
run "$tool" login --serial 1F00 --show-password --json
expect "the password when asked for" '0/{"user":"operator","password":"op-pass"}/'
run "$tool" ocsp 1
expect "no OCSP address" \
    "1//bmccert: client certificate 1 is not confirmed good by its OCSP responder: 0x92000028"
run "$tool" forget-user 3
expect "forget-user" "0/user 3 holds no client certificate/"
run "$tool" login --serial 1F00
expect "a refused login names the serial" "1//bmccert: no login for serial number 1F00: 0x18000E16"
run "$tool" auth disable
expect "disable" "0/Turned off certificate authentication state successfully./"
run "$tool" clients delete 1
expect "client delete" "0/Deleted client certificate successfully. Certificate: op.crt./"
run "$tool" roots delete 1
expect "root delete" "0/Deleted root certificate successfully. Certificate: root.pem./"
if grep -rqs op-pass /var/lib/bmc-sim/diag.log /var/lib/bmc-sim/operate.log; then
    failed=$((failed + 1)); echo "FAIL: a password reached a log"
fi

echo "$passed passed, $failed failed"
[ "$failed" -eq 0 ]
