#!/usr/bin/env bash
# The tool where there is no controller: it says so and points at
# bmc-sandbox instead of answering, and leaves the platform's state alone.
# Inside a sandbox whose /conf/certs this test removes (the sandbox's own
# copy), so that the host is never read. Also: explain, unknown subcommands.
set -u
tool=${1:?usage: outside_controller_test.sh PATH-TO-BMCCERT}
failed=0
check() { # NAME EXPECTED-STATUS STDERR-PATTERN STDOUT-PATTERN -- ARGS...
    local name=$1 want=$2 errPattern=$3 outPattern=$4
    shift 5
    local out err status
    out=$("$tool" "$@" 2>/tmp/outside-err.$$)
    status=$?
    err=$(</tmp/outside-err.$$)
    if [ "$status" != "$want" ] || [[ $err != $errPattern ]] || [[ $out != $outPattern ]]; then
        printf 'FAIL: %s\n  status=%s\n  stdout=[%s]\n  stderr=[%s]\n' "$name" "$status" "$out" "$err"
        failed=$((failed + 1))
    fi
}
trap 'rm -f /tmp/outside-err.$$' EXIT

check "explain a management code" 0 "" "0x1800041C SSLCERT_MGMT_GEN_BAD_REQUEST: *" -- explain 0x1800041c
check "explain without 0x" 0 "" "0x98000004 SSLCERT_ERR_CERT_EXPIRED: *" -- explain 98000004
check "explain an unknown code" 1 "bmccert: explain: 0x12345678 is not a result code*" "" -- explain 0x12345678
check "explain a word" 2 "bmccert: explain: 'soon' is not a hexadecimal code*" "" -- explain soon
check "unknown subcommand" 2 "bmccert: unknown subcommand 'frobnicate'*" "" -- frobnicate

rm -rf /conf/certs
before=$(find /var/lib/bmc-sim | sort)
for sub in type info days-left "paths 4" refresh tasks; do
    # shellcheck disable=SC2086 # the words of a subcommand line
    check "$sub outside a controller" 1 "bmccert: /conf/certs does not exist*bmc-sandbox ROOT -- bmccert*" "" -- $sub
done
check "help outside a controller" 0 "" "*Usage: bmccert days-left*" -- days-left --help
check "explain outside a controller" 0 "" "0x00000000 SSLCERT_OK: success" -- explain 0
[ "$(find /var/lib/bmc-sim | sort)" = "$before" ] || { echo "FAIL: the platform state changed"; failed=$((failed + 1)); }

[ "$failed" -eq 0 ] && echo "outside controller: all checks passed"
exit $((failed > 0))
