#!/usr/bin/env bash
# The bmccert tool against a factory-fresh controller, then where there is
# none: what scripts and engineers rely on — the result lines, the JSON,
# the exit statuses, the single failure line on stderr and the waiting for
# tasks. The library's own rules are left to its suites. Runs inside
# bmc-sandbox; TOOL may be a wrapper that runs the tool (under valgrind).
#   usage: cli_test.sh TOOL
set -u
tool=${1:?usage: cli_test.sh PATH-TO-BMCCERT}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
passed=0 failed=0 status=0 out='' err=''

run() {
    "$tool" "$@" >"$work/out" 2>"$work/err"
    status=$?
    out=$(<"$work/out")
    err=$(<"$work/err")
}

# expect NAME TEST...: one check on the last run.
expect() {
    local name=$1
    shift
    if "$@"; then
        passed=$((passed + 1))
    else
        failed=$((failed + 1))
        printf 'FAIL: %s\n  status=%s\n  stdout=[%s]\n  stderr=[%s]\n' \
            "$name" "$status" "$out" "$err"
    fi
}

# The JSON on stdout read by python; prints the value of a path like
# stSSLConfig.uiPublicKeyLen, or fails when the text is not JSON.
json_get() {
    python3 -c '
import json, sys
value = json.load(open(sys.argv[1]))
for part in sys.argv[2].split("."):
    value = value[part]
print(value)' "$work/out" "$1"
}

is() { [[ $1 == "$2" ]]; }
matches() { [[ $1 =~ $2 ]]; }

# --- type, paths ----------------------------------------------------------
run type
expect "type of the factory certificate" is "$status/$out/$err" "0/4 factory-default/"
run type --json
expect "type as JSON" is "$out" '{"type":4,"name":"factory-default"}'
run paths 6
expect "paths of the generated temporary type" is "$status/$out" \
    "0/cert: /var/certs/TmpCertGen.pem
key: /var/certs/TmpPrivkeyGen.pem"
run paths 6 --json
expect "paths as JSON" is "$(json_get cert) $(json_get key) $(json_get type)" \
    "/var/certs/TmpCertGen.pem /var/certs/TmpPrivkeyGen.pem 6"
run paths 7
expect "a failure is one line with the library's code" is "$status/$out/$err" \
    "1//bmccert: no paths for certificate type 7: 0x81000001"
run paths 0x6
expect "a type that is not plain decimal is a usage error" is "$status/$out" "2/"

# --- info, days-left, refresh -----------------------------------------------
# The first read comes from the files (and stores the record), the second
# from the database.
run info --json
expect "info as JSON" is "$(json_get stKeyFileInfo.ucCertType) $(json_get stSSLConfig.stIssueTo.szCommonName)" \
    "4 bmc.local"
run info
expect "info as text" matches "$out" $'(^|\n)Type: +4 factory-default\n.*\nSubject:\n  CN: +bmc.local\n'
run days-left
expect "days left" matches "$status/$out" '^0/[1-9][0-9]*$'
days=$out
run days-left --json
expect "days left as JSON" is "$out" "{\"daysLeft\":$days}"
run refresh
expect "refresh" is "$status/$out/$err" "0/refreshed/"

# --- generate, verify, install -----------------------------------------------
request=(--cn 'bmc 7' --org 'Works, Inc' --ou Lab --locality Town --state North --country de
         --email ops@bmc-7.example.org)
run generate "${request[@]}" --key-length 4096 --email 'not an address'
expect "the first refused field is named with its rule" is "$status/$out/$err" \
    "1//bmccert: --key-length refused: must be 1024 or 2048: 0x1800041C"
run verify
# The openssl tool says why on stderr before the tool's own last line.
expect "verify without a generated certificate" is "$status/$out/${err##*$'\n'}" \
    "1//bmccert: generated certificate missing or unreadable: 0x98000002"
run generate "${request[@]}" --key-length 1024 --days 30 --json
expect "generate succeeds" is "$status/$out" \
    '0/{"result":0,"description":"Generated SSL certificate successfully."}'
run install /conf/certs/server/default/server.pem /conf/certs/server/default/privkey.pem
expect "install an existing pair" is "$status/$out" "0/installed; tunnel restarted, web server restarting"
run install /nonexistent.pem /conf/certs/server/default/privkey.pem
expect "install of a missing file" is "$status/$err" "1/bmccert: installation failed: 0x81000001"
rm -rf /conf/certs/server/user/* /conf/certs/server/server.pem

# --- upload and tasks ---------------------------------------------------------
openssl req -x509 -newkey rsa:2048 -nodes -keyout "$work/up.key" -out "$work/up.crt" -days 30 \
    -subj /CN=uploaded.test -addext extendedKeyUsage=serverAuth 2>/dev/null
run upload "$work/up.crt" "$work/up.key"
expect "upload waits for the final report" matches "$status/$out" \
    $'^0/task ([0-9]+): registered\ntask [0-9]+: finished, 100%: Server Cert import successfully\noperation log: Imported SSL certificate successfully. \\(result kind 99, user [^ ]+ from localhost\\)$'
expect "the web server restart came before the tool ended" is "$(tail -n 1 /var/lib/bmc-sim/services.log)" \
    "restart lighttpd.service"
run upload "$work/missing.crt" "$work/up.key" --json
expect "a failed import exits with the import's code" is "$status/$(json_get task.state)/${err##*$'\n'}" \
    "1/4/bmccert: import failed (details in /var/lib/bmc-sim/diag.log): 0x1800001B"
run tasks --json
expect "tasks lists both imports" is "$(json_get tasks.1.state) $(json_get tasks.2.text)" \
    "2 Failed to import Server Cert"
rm -rf /conf/certs/server/user/* /conf/certs/server/server.pem

# --- help and usage -------------------------------------------------------
# The tool's own help text states the library's limits.
run generate --help
expect "generate --help states the limits" matches "$status/$out" '^0/.*1024 or 2048.*1 to 5475'
run
expect "no subcommand is a usage error" is "$status/$out" "2/"
run frobnicate
expect "an unknown subcommand is named" is "$status/$out/$err" \
    "2//bmccert: unknown subcommand 'frobnicate'; see bmccert --help"

# --- results that cannot be written ----------------------------------------
"$tool" type >/dev/full 2>"$work/err"
status=$? out='' err=$(<"$work/err")
expect "a result lost to a full disk is a failure" matches "$status/$err" '^1/bmccert: '

# --- without a certificate, then without a controller ---------------------------
rm -f /conf/certs/server/default/server.pem
run type
expect "no certificate is type 0, not a failure" is "$status/$out" "0/0 none"
run explain 0x1800041c
expect "explain a management code" matches "$status/$out" '^0/0x1800041C SSLCERT_MGMT_GEN_BAD_REQUEST: .'
run explain 98000004
expect "explain without 0x" matches "$status/$out" '^0/0x98000004 SSLCERT_ERR_CERT_EXPIRED: .'
run explain 0x12345678
expect "explain an unknown code" matches "$status/$err" '^1/bmccert: explain: 0x12345678 is not a result code'
run explain soon
expect "explain a word" matches "$status/$err" "^2/bmccert: explain: 'soon' is not a hexadecimal code"
# The sandbox's own /conf/certs: the tool points at bmc-sandbox and leaves
# the platform's state alone.
rm -rf /conf/certs
before=$(find /var/lib/bmc-sim | sort)
for sub in type info days-left 'paths 4' refresh tasks; do
    # shellcheck disable=SC2086 # the words of a subcommand line
    run $sub
    expect "$sub outside a controller" matches "$status/$out/$err" \
        '^1//bmccert: /conf/certs does not exist.*bmc-sandbox ROOT -- bmccert'
done
run days-left --help
expect "help outside a controller" matches "$status/$out" '^0/.*Usage: bmccert days-left'
run explain 0
expect "explain outside a controller" is "$status/$out" "0/0x00000000 SSLCERT_OK: success"
expect "the platform state is untouched" is "$(find /var/lib/bmc-sim | sort)" "$before"

echo "$passed passed, $failed failed"
[[ $failed -eq 0 ]]
