#!/usr/bin/env bash
# The bmccert tool against a factory-fresh controller: what scripts and
# engineers rely on — the result lines, the JSON, the exit statuses and the
# single failure line on stderr. Runs inside bmc-sandbox.
set -u
tool=${1:?usage: cli_test.sh PATH-TO-BMCCERT}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
passed=0
failed=0
status=0 out='' err=''

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

valid_json() { python3 -m json.tool "$work/out" >/dev/null 2>&1; }
is() { [[ $1 == "$2" ]]; }
matches() { [[ $1 =~ $2 ]]; }

# --- type -----------------------------------------------------------------
run type
expect "type of the factory certificate" is "$status/$out/$err" "0/4 factory-default/"
run type --json
expect "type as JSON" is "$out" '{"type":4,"name":"factory-default"}'

# --- paths ----------------------------------------------------------------
run paths 6
expect "paths of the generated temporary type" is "$status/$out" \
    "0/cert: /var/certs/TmpCertGen.pem
key: /var/certs/TmpPrivkeyGen.pem"
run paths 6 --json
expect "paths as JSON" is "$(json_get cert) $(json_get key) $(json_get type)" \
    "/var/certs/TmpCertGen.pem /var/certs/TmpPrivkeyGen.pem 6"
run paths 7
expect "undefined type fails with the library's code" is "$status/$out/$err" \
    "1//bmccert: no paths for certificate type 7: 0x81000001"
run paths 4294967295
expect "largest type reaches the library" is "$status/$err" \
    "1/bmccert: no paths for certificate type 4294967295: 0x81000001"
for bad in abc -1 4294967296 0x6 ''; do
    run paths "$bad"
    expect "paths '$bad' is a usage error" is "$status/$out" "2/"
done
run paths
expect "paths without a type is a usage error" is "$status" 2

# --- info -----------------------------------------------------------------
run info --json
expect "info is valid JSON" valid_json
expect "info carries the type" is "$(json_get stKeyFileInfo.ucCertType)" 4
expect "info carries the key length" is "$(json_get stSSLConfig.uiPublicKeyLen)" 2048
expect "info carries the subject" is "$(json_get stSSLConfig.stIssueTo.szCommonName)" bmc.local
expect "info carries the file time" matches "$(json_get stKeyFileInfo.szCertFileTime)" '^[0-9]{4}-'
run info
expect "info text shows the type" matches "$out" $'(^|\n)Type: +4 factory-default\n'
expect "info text shows the key length" matches "$out" $'\nPublic key length \\(bits\\): +2048\n'
expect "info text shows the subject" matches "$out" $'\nSubject:\n  CN: +bmc.local\n'

# --- days-left ------------------------------------------------------------
run days-left
expect "days left is positive" matches "$status/$out" '^0/[1-9][0-9]*$'
days=$out
run days-left --json
expect "days left as JSON" is "$out" "{\"daysLeft\":$days}"

# --- refresh --------------------------------------------------------------
run refresh
expect "refresh succeeds" is "$status/$out/$err" "0/refreshed/"

# --- generate, verify, install -----------------------------------------------
request=(--cn 'bmc 7' --org 'Works, Inc' --ou Lab --locality Town --state North --country de
         --email ops@bmc-7.example.org)
run generate "${request[@]}" --key-length 4096 --email 'not an address'
expect "the first refused field is named with its rule" is "$status/$out/$err" \
    "1//bmccert: --key-length refused: must be 1024 or 2048: 0x1800041C"
run generate "${request[@]}" --ou '12'
expect "a digits-only unit is refused" matches "$status/$err" '^1/bmccert: --ou refused: .*: 0x1800041C$'
run verify
# The openssl tool says why on stderr before the tool's own last line.
expect "verify without a generated certificate" is "$status/$out/${err##*$'\n'}" \
    "1//bmccert: generated certificate missing or unreadable: 0x98000002"
run generate "${request[@]}" --key-length 1024 --days 30 --json
expect "generate succeeds" is "$status/$out" \
    '0/{"result":0,"description":"Generated SSL certificate successfully."}'
run info --json
expect "the new certificate is in force without a refresh" is \
    "$(json_get stKeyFileInfo.ucCertType) $(json_get stSSLConfig.stIssueTo.szCommonName)" "1 bmc 7"
expect "the key is private" is "$(stat -c %a /conf/certs/server/user/actualprivkey.pem)" 600
run install /conf/certs/server/default/server.pem /conf/certs/server/default/privkey.pem
expect "install an existing pair" is "$status/$out" "0/installed; tunnel restarted, web server restarting"
run info --json
expect "the installed pair is in force" is "$(json_get stSSLConfig.stIssueTo.szCommonName)" bmc.local
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
for command in type paths info days-left refresh generate verify install upload tasks; do
    run "$command" --help
    expect "$command --help" matches "$status/$out" "^0/.*Usage"
done
run --help
expect "--help lists the subcommands" matches "$status/$out" '^0/.*days-left'
run
expect "no subcommand is a usage error" is "$status/$out" "2/"
run frobnicate
expect "an unknown subcommand is a usage error" is "$status/$out" "2/"

# --- results that cannot be written ----------------------------------------
"$tool" type >/dev/full 2>"$work/err"
status=$? out='' err=$(<"$work/err")
expect "a result lost to a full disk is a failure" matches "$status/$err" '^1/bmccert: '

# --- without a certificate --------------------------------------------------
rm -f /conf/certs/server/default/server.pem
run refresh
expect "refresh without certificate fails in hex" matches "$status/$out/$err" \
    '^1//bmccert: refresh failed: 0x[0-9A-F]{8}$'
run type
expect "no certificate is type 0, not a failure" is "$status/$out" "0/0 none"

echo "$passed passed, $failed failed"
[[ $failed -eq 0 ]]
