#!/usr/bin/env bash
# The bmccert tool (and the stand-in's user administration, bmc-sim)
# against a factory-fresh controller, then where there is none: what
# scripts and engineers rely on — the result lines, the JSON,
# the exit statuses, the single failure line on stderr and the waiting for
# tasks. The library's own rules are left to its suites. Runs inside
# bmc-sandbox; TOOL may be a wrapper that runs the tool (under valgrind).
#   usage: cli_test.sh TOOL PATH-TO-BMC-SIM
set -u
tool=${1:?usage: cli_test.sh TOOL PATH-TO-BMC-SIM}
sim=${2:?usage: cli_test.sh TOOL PATH-TO-BMC-SIM}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
passed=0 failed=0 status=0 out='' err=''

run() { "$@" >"$work/out" 2>"$work/err"; status=$? out=$(<"$work/out") err=$(<"$work/err"); }
expect() {  # NAME TEST...: one check on the last run
    if "${@:2}"; then passed=$((passed + 1)); return; fi
    failed=$((failed + 1))
    printf 'FAIL: %s\n  status=%s\n  stdout=[%s]\n  stderr=[%s]\n' "$1" "$status" "$out" "$err"
}
# The value at a path like certificate.key_bits of the JSON on stdout;
# fails when the text is not JSON.
json_get() {
    python3 -c 'import functools, json, sys
print(functools.reduce(lambda v, k: v[int(k)] if isinstance(v, list) else v[k],
                       sys.argv[2].split("."), json.load(open(sys.argv[1]))))' \
        "$work/out" "$1"
}
is() { [[ $1 == "$2" ]]; }
last() { [[ "$status/$out/$err" == "$1" ]]; } # "status/stdout/stderr" of the last run
# NAME "STATUS/STDOUT/STDERR" COMMAND...: runs COMMAND and checks its whole outcome.
check() { run "${@:3}"; expect "$1" last "$2"; }
not() { ! "$@"; }
matches() { [[ $1 =~ $2 ]]; }

# --- type, paths ----------------------------------------------------------
check "type of the factory certificate" "0/4 factory-default/" "$tool" type
check "paths of the generated temporary type" \
    $'0/cert: /var/certs/TmpCertGen.pem\nkey: /var/certs/TmpPrivkeyGen.pem/' "$tool" paths 6
check "a failure is one line with the library's code" "1//bmccert: no paths for certificate type 7: 0x81000001" \
    "$tool" paths 7
run "$tool" paths 0x6
expect "a type that is not plain decimal is a usage error" is "$status/$out" "2/"

# --- info, days-left, refresh -----------------------------------------------
# The first read comes from the files (and stores the record), the second
# from the database.
run "$tool" info --json
expect "info as JSON" is "$(json_get type) $(json_get certificate.subject.common_name)" "4 bmc.local"
expect "... with the expiry in seconds and the days left" matches \
    "$(json_get certificate.not_after)/$(json_get certificate.days_left)" \
    "^$(date -d "$(json_get certificate.not_after_text)" +%s)/547[45]\$"
run "$tool" days-left
expect "days left" matches "$status/$out" '^0/[1-9][0-9]*$'
check "refresh" "0/refreshed/" "$tool" refresh

# --- generate, verify, install -----------------------------------------------
request=(--cn 'bmc 7' --org 'Works, Inc' --ou Lab --locality Town --state North --country de
         --email ops@bmc-7.example.org)
lines=$(wc -l </var/lib/bmc-sim/diag.log)
check "the first refused field is named with its rule" "1//bmccert: --key-length refused: must be 1024 or 2048: 0x1800041C" \
    "$tool" generate "${request[@]}" --key-length 4096 --email 'not an address'
expect "... and reported once in the diagnostics log" is "$(tail -n +$((lines + 1)) /var/lib/bmc-sim/diag.log | cut -f6)" \
    "SSL cert Gen Keylength verify failed! Keylength = 4096.\\n"
run "$tool" verify
# The openssl tool says why on stderr before the tool's own last line.
expect "verify without a generated certificate" is "$status/$out/${err##*$'\n'}" \
    "1//bmccert: generated certificate missing or unreadable: 0x98000002"
check "a text longer than its field is refused, never cut" \
    "1//bmccert: --country refused: 3 bytes; at most 2 fit: 0x1800041C" \
    "$tool" generate "${request[@]}" --country USA
run "$tool" generate "${request[@]}" --country USA --json
expect "... with a JSON error object for --json" is "$out" \
    '{"error":{"code":"0x1800041C","name":"SSLCERT_MGMT_GEN_BAD_REQUEST","message":"--country refused: 3 bytes; at most 2 fit"}}'
run "$tool" generate "${request[@]}" --key-length 1024
expect "a 1024-bit key asks for --force" matches "$status/$out/$err" "^2//.*security level 2.*--force"
run "$tool" generate "${request[@]}" --key-length 1024 --force --days 30 --json
expect "generate succeeds" is "$status/$out" \
    '0/{"result":0,"description":"Generated SSL certificate successfully."}'
expect "the openssl tool's notes stay out of the caller's stderr" is "$err" ""
run env BMC_SIM_FAULTS=systemd_run=5 "$tool" generate "${request[@]}"
expect "a generation whose restart failed says the certificate is in force" is "$status/$err" \
    "1/bmccert: installed, but the tunnel did not restart: Failed to generate SSL certificate.: 0x1800001A"
run "$tool" install /conf/certs/server/default/server.pem /conf/certs/server/default/privkey.pem
expect "install an existing pair" is "$status/$out" "0/installed; tunnel restarted, web server restarting"
run "$tool" install /nonexistent.pem /conf/certs/server/default/privkey.pem
expect "install of a missing file" is "$status/$err" "1/bmccert: installation failed: 0x81000001"
rm -rf /conf/certs/server/user/* /conf/certs/server/server.pem

# --- upload and tasks ---------------------------------------------------------
openssl req -x509 -newkey rsa:2048 -nodes -keyout "$work/up.key" -out "$work/up.crt" -days 30 \
    -subj /CN=uploaded.test -addext extendedKeyUsage=serverAuth 2>/dev/null
run "$tool" upload "$work/up.crt" "$work/up.key"
expect "upload waits for the final report" matches "$status/$out" \
    $'^0/task ([0-9]+): registered\ntask [0-9]+: finished, 100%: Server Cert import successfully\noperation log: Imported SSL certificate successfully. \\(result kind 99, user [^ ]+ from localhost\\)$'
expect "the web server restart came before the tool ended" is "$(tail -n 1 /var/lib/bmc-sim/services.log)" \
    "restart lighttpd.service"
check "a path longer than its field is refused, not cut to another file" \
    "1//bmccert: KEY refused: 1100 bytes; at most 1024 fit: 0x1800001B" \
    "$tool" upload "$work/up.crt" "/$(printf '%01099d' 0)"
run "$tool" upload "$work/missing.crt" "$work/up.key" --json
expect "a failed import exits with the import's code" is "$status/$(json_get task.state)/${err##*$'\n'}" \
    "1/4/bmccert: import failed (details in /var/lib/bmc-sim/diag.log): 0x1800001B"
run "$tool" tasks --json
expect "tasks lists both imports" is "$(json_get tasks.1.state) $(json_get tasks.2.text)" \
    "2 Failed to import Server Cert"
rm -rf /conf/certs/server/user/* /conf/certs/server/server.pem

# A root and a client certificate it issued (after the two uploads' tasks).
openssl req -x509 -newkey rsa:2048 -nodes -keyout "$work/root.key" -out "$work/root.pem" \
    -days 30 -subj '/CN=CLI Root' 2>/dev/null
openssl req -newkey rsa:2048 -nodes -keyout "$work/op.key" -subj /CN=op 2>/dev/null |
    openssl x509 -req -CA "$work/root.pem" -CAkey "$work/root.key" -set_serial 0x1F00 -days 9 \
        -out "$work/op.crt" 2>/dev/null

# --- the stand-in's users, client-certificate authentication -----------------
check "user set" "0//" "$sim" user set 3 operator --role 3 --password op-pass

check "factory state" $'0/support: 1\nauthentication: off\nrevocation check: off\nactive root: none/' \
    "$tool" auth status

# --- client certificates, bindings, login ----------------------------------
check "root import follows its task" "0/task 3: finished, 100%: Root Cert import successfully/" \
    "$tool" roots import "$work/root.pem"
check "a refused import" "1//bmccert: import refused (details in /var/lib/bmc-sim/diag.log): 0x1800060F" \
    "$tool" clients import "$work/op.crt" --root 3
check "client import" "0/task 4: finished, 100%: Client Cert import successfully/" \
    "$tool" clients import "$work/op.crt" --root 1
check "bind" "0/Bound client certificate to user successfully. Certificate: op.crt, user: operator./" \
    "$tool" bind 1 3
check "enable" "0/Turned on certificate authentication state successfully./" "$tool" auth enable 1
check "the roots listed" "0/1 active root.pem expires $(openssl x509 -noout -enddate -in "$work/root.pem" | cut -d= -f2)/" \
    "$tool" roots
check "login prints the name only" "0/operator/" "$tool" login --serial 1F00
check "the password when asked for" '0/{"user":"operator","password":"op-pass"}/' \
    "$tool" login --serial 1F00 --show-password --json
check "no OCSP address" "1//bmccert: client certificate 1 is not confirmed good by its OCSP responder: 0x92000028" \
    "$tool" ocsp 1
check "forget-user" "0/user 3 holds no client certificate/" "$tool" forget-user 3
check "a refused login names the serial" "1//bmccert: no login for serial number 1F00: 0x18000E16" \
    "$tool" login --serial 1F00
expect "no password in a log" not grep -rqs op-pass /var/lib/bmc-sim/diag.log /var/lib/bmc-sim/operate.log

# --- signing request, the CA's answer, generate with names -----------------------
csr=(csr --cn bmc-7.example.org --org Works --ou Lab --locality Town --state North --country DE
     --email ops@bmc-7.example.org)
check "no pending request" \
    "1//bmccert: no pending signing request: no signing request is pending: 0x8A000007" "$tool" csr --show
check "a text past its field is refused before the library" \
    "1//bmccert: --ou refused: 65 bytes; at most 64 fit: 0x8A000002" "$tool" "${csr[@]}" --ou "$(printf '%065d' 0)"
check "the library's text rule, named" "1//bmccert: --country refused: must be two letters: 0x8A000002" \
    "$tool" "${csr[@]}" --country 1
run "$tool" "${csr[@]}" --ip 127.0.0.1 --dns bmc_7
expect "the library's name rule, named" matches "$status/$err" "^1/bmccert: --dns refused: 'bmc_7' is not a host name.*: 0x8A000003$"
run "$tool" csr --cn x
expect "a request needs the seven texts" is "$status/$err" "2/bmccert: csr: --org is required (or --show)"
run "$tool" "${csr[@]}" --key p384 --dns bmc-7.example.org --ip 127.0.0.1 --ip ::1 --out "$work/bmc.csr"
expect "csr --out" is "$status/$out" "0/signing request in $work/bmc.csr; its key is pending on the controller"
run "$tool" csr --show --pem
expect "show: subject, key, names in order, the PEM" matches "$status/$out" \
    $'^0/Subject:\n  CN: +bmc-7.example.org\n.*\nKey: +p384\nNames:\n  DNS: +bmc-7.example.org\n  IP: +127.0.0.1\n  IP: +::1\n-----BEGIN'
expect "... the PEM of the request" is "-----BEGIN${out#*-----BEGIN}" "$(<"$work/bmc.csr")"
run "$tool" csr --show --json
expect "show as JSON" is "$(json_get key) $(json_get alt_names.2.type) $(json_get alt_names.2.name) $(json_get subject.country)" \
    "p384 ip ::1 DE"

printf 'subjectAltName=DNS:bmc-7.example.org,IP:127.0.0.1,IP:::1\nextendedKeyUsage=serverAuth\n' >"$work/leaf.ext"
openssl x509 -req -in "$work/bmc.csr" -CA "$work/root.pem" -CAkey "$work/root.key" -set_serial 0x5A \
    -days 9 -extfile "$work/leaf.ext" -out "$work/leaf.pem" 2>/dev/null
cat "$work/root.pem" >>"$work/leaf.pem" # the issuer, so that clients can build the chain
# An expired answer of a lab CA: a wrong clock is the usual cause.
mkdir "$work/ca" && : >"$work/ca/index" && echo 01 >"$work/ca/serial"
printf '[ca]\ndefault_ca=lab\n[lab]\ndatabase=index\nnew_certs_dir=.\nserial=serial\ndefault_md=sha256\npolicy=any\n[any]\ncommonName=supplied\n' >"$work/ca/ca.cnf"
(cd "$work/ca" && openssl ca -batch -config ca.cnf -cert "$work/root.pem" -keyfile "$work/root.key" \
    -in "$work/bmc.csr" -startdate 20240101000000Z -enddate 20240201000000Z -out old.pem 2>/dev/null)
run "$tool" check-signed "$work/ca/old.pem"
expect "an expired answer shows its dates and the clock" matches "$status/$err" \
    "^1/bmccert: signed certificate refused: .*; valid from 2024-01-01 00:00:00 UTC until 2024-02-01 00:00:00 UTC; the controller's clock says 20[0-9-]+ [0-9:]+ UTC: 0x8A000016$"
check "check-signed installs nothing" "0/the answer passes every check: bmccert install-signed $work/leaf.pem installs it/" \
    "$tool" check-signed "$work/leaf.pem"
run "$tool" install-signed "$work/leaf.pem"
expect "install-signed follows its task" matches "$status/$out" \
    $'^0/task ([0-9]+): registered\ntask [0-9]+: finished, 100%: [^\n]+\noperation log: Installed the signed SSL certificate successfully\\. \\(result kind [0-9]+, user [^ ]+ from localhost\\)$'
openssl x509 -in "$work/leaf.pem" -outform DER -out "$work/leaf.cer"
check "the answer in force, checked again" "0/the answer is the certificate already in force: nothing to install/" \
    "$tool" check-signed "$work/leaf.cer"
run "$tool" install-signed "$work/leaf.cer"
expect "... installed again as DER: a harmless retry" matches "$status/$out" \
    $'^0/task ([0-9]+): registered\ntask [0-9]+: finished, 100%: Signed Cert already in force\n'
# A tunnel that does not restart: installed, and said so with the task's code.
run "$tool" "${csr[@]}" --key p256 --dns bmc-7.example.org --ip 127.0.0.1 --ip ::1 --out "$work/bmc2.csr"
openssl x509 -req -in "$work/bmc2.csr" -CA "$work/root.pem" -CAkey "$work/root.key" -set_serial 0x5B \
    -days 9 -extfile "$work/leaf.ext" -out "$work/leaf2.pem" 2>/dev/null
cat "$work/root.pem" >>"$work/leaf2.pem"
run env BMC_SIM_FAULTS=systemd_run=5 "$tool" install-signed "$work/leaf2.pem"
expect "install-signed whose tunnel did not restart" matches "$status/$err" \
    '^1/bmccert: signed certificate \(details in [^)]+\): the new certificate is installed, but the tunnel did not restart .*: 0x8A000022$'
check "a missing answer" \
    "1//bmccert: signed certificate refused: the CA's answer could not be fetched through the file transfer: 0x8A000010" \
    "$tool" install-signed "$work/missing.pem"

run "$tool" generate "${request[@]}" --ip 127.0.0.1 --key-length 1024
expect "names need a key type of the extension" is "$status/$err" \
    "2/bmccert: --key-length refused: with --dns or --ip give --key (rsa2048, rsa3072, rsa4096, p256, p384)"
rm -rf /conf/certs/server/user/* /conf/certs/server/server.pem

# --- results that cannot be written ----------------------------------------
"$tool" type >/dev/full 2>"$work/err"
status=$? out='' err=$(<"$work/err")
expect "a result lost to a full disk is a failure" matches "$status/$err" '^1/bmccert: '

# --- without a certificate, then without a controller ---------------------------
rm -f /conf/certs/server/default/server.pem
run "$tool" type
expect "no certificate is type 0, not a failure" is "$status/$out" "0/0 none"
run "$tool" explain 0x1800041c
expect "explain a management code" matches "$status/$out" '^0/0x1800041C SSLCERT_MGMT_GEN_BAD_REQUEST: .'
run "$tool" explain 0x8A00001F
expect "explain says what to do on its second line" matches "$status/$out" \
    $'^0/0x8A00001F SSLCERT_EXT_ERR_CHAIN_SIGNATURE: .*\nwhat to do: Fetch the CA\'s current chain'
run "$tool" explain 0x12345678
expect "explain an unknown code" matches "$status/$err" '^1/bmccert: explain: 0x12345678 is not a result code'
# A code as the diagnostics log prints it: a negative number must reach the
# command as its argument, not be taken for an option.
run "$tool" explain -1744830456
expect "explain a logged negative code" matches "$status/$out" '^0/0x98000008 SSLCERT_ERR_GEN_REQUEST: .'
run "$tool" explain 12x
expect "explain no code" matches "$status/$err" "^2/bmccert: explain: '12x' is not a code"
# The sandbox's own /conf/certs: the tool points at bmc-sandbox and leaves
# the platform's state alone.
rm -rf /conf/certs
before=$(find /var/lib/bmc-sim | sort)
for sub in type info days-left 'paths 4' refresh tasks; do
    # shellcheck disable=SC2086 # the words of a subcommand line
    run "$tool" $sub
    expect "$sub outside a controller" matches "$status/$out/$err" \
        '^1//bmccert: /conf/certs does not exist.*bmc-sandbox ROOT -- bmccert'
done
run "$tool" days-left --help
expect "help outside a controller" matches "$status/$out" '^0/.*Usage: bmccert days-left'
run "$tool" explain 0
expect "explain outside a controller" is "$status/$out" "0/0x00000000 SSLCERT_OK: success"
expect "the platform state is untouched" is "$(find /var/lib/bmc-sim | sort)" "$before"

echo "$passed passed, $failed failed"
[[ $failed -eq 0 ]]
