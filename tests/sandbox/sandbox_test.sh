#!/usr/bin/env bash
# Checks bmc-sandbox from outside and from inside its namespace. Runs as
# root, like CI; a sandbox that cannot be created is a failure, not a skip.
#   usage: sandbox_test.sh BMC_SANDBOX WORK_DIR
set -u
tool=$(realpath "$1")
work=$2
root=$work/root
passed=0
failed=0

pass() { passed=$((passed + 1)); }
fail() { failed=$((failed + 1)); echo "FAIL: $*" >&2; }
expect_status() {  # NAME WANTED COMMAND...
    local name=$1 wanted=$2
    shift 2
    "$@" >/dev/null 2>&1
    local got=$?
    [ "$got" -eq "$wanted" ] && pass || fail "$name: exit status $got, wanted $wanted"
}
expect_match() {  # NAME PATTERN TEXT
    grep -qE -- "$2" <<<"$3" && pass || fail "$1: no line matches /$2/"
}
in_sandbox() { "$tool" "$root" -- "$@"; }
fingerprint() { in_sandbox openssl x509 -in "$cert" -noout -fingerprint -sha256; }

mkdir -p "$work"
cert=/conf/certs/server/default/server.pem
key=/conf/certs/server/default/privkey.pem
mounts_before=$(wc -l </proc/self/mountinfo)

if ! "$tool" --fresh "$root" -- true; then
    echo "FAIL: the sandbox cannot be created" >&2
    echo "0 passed, 1 failed"
    exit 1
fi

# --- usage: every mistake is exit status 2, before anything is touched
expect_status "no arguments" 2 "$tool"
expect_status "missing --" 2 "$tool" "$root" true
expect_status "missing command" 2 "$tool" "$root" --
expect_status "unknown option" 2 "$tool" --bogus "$root" -- true
expect_status "empty root" 2 "$tool" --fresh "" -- true
# /proc cannot be emptied even if the guard fails, so it is a safe victim;
# the link proves the guard looks at the resolved path.
ln -sfn /proc "$work/link-to-proc"
expect_status "top-level root via a link" 2 "$tool" --fresh "$work/link-to-proc" -- true
mkdir -p "$work/foreign" && touch "$work/foreign/keep-me"
expect_status "foreign root" 2 "$tool" --fresh "$work/foreign" -- true
[ -e "$work/foreign/keep-me" ] && pass || fail "--fresh emptied a directory that is no sandbox"
mkdir -p "$work/home"
HOME=$work/home expect_status "home directory" 2 "$tool" "$work/home" -- true
expect_status "colon in root" 2 "$tool" "$work/a:b" -- true
expect_status "help" 0 "$tool" --help

# A root reached by a relative path works and is handed on absolute.
expect_match "relative root" "^$root\$" "$(cd "$work" && "$tool" root -- printenv BMC_SANDBOX_ROOT)"

# A link planted in the root must not carry provisioning outside it.
mkdir -p "$work/linked/elsewhere" && ln -sfn elsewhere "$work/linked/conf"
expect_status "link in root" 125 "$tool" "$work/linked" -- true
[ -z "$(ls -A "$work/linked/elsewhere")" ] && pass || fail "provisioning followed a link out of ROOT"

# --- the command's fate is the tool's exit status
expect_status "exit status" 7 in_sandbox sh -c 'exit 7'
expect_status "killed by a signal" 137 in_sandbox sh -c 'kill -KILL $$'
expect_status "not executable" 127 in_sandbox /nonexistent/program

# SIGTERM to the tool reaches the command, which may clean up and exit.
rm -f "$root/state/ready"
"$tool" "$root" -- sh -c 'trap "kill \$!; exit 42" TERM
    : >/var/lib/bmc-sim/ready; sleep 5 & wait' &
tool_pid=$!
for _ in $(seq 50); do [ -e "$root/state/ready" ] && break; sleep 0.1; done
kill -TERM "$tool_pid"
wait "$tool_pid"
status=$?
[ "$status" -eq 42 ] && pass || fail "SIGTERM not passed on: exit status $status"

# --- factory certificate: RSA 2048, self-signed, fit for a TLS server
text=$(in_sandbox openssl x509 -in "$cert" -noout -text)
expect_match "key size" 'Public-Key: \(2048 bit\)' "$text"
expect_match "not a CA" 'CA:FALSE' "$text"
expect_match "key usage" 'Digital Signature, Key Encipherment' "$text"
expect_match "server auth" 'TLS Web Server Authentication' "$text"
expect_match "subject alt name" 'DNS:bmc\.local' "$text"
expect_match "self-signed" 'OK$' "$(in_sandbox openssl verify -CAfile "$cert" "$cert" 2>&1)"
cert_pub=$(in_sandbox openssl x509 -in "$cert" -noout -pubkey)
key_pub=$(in_sandbox openssl pkey -in "$key" -pubout)
[ -n "$cert_pub" ] && [ "$cert_pub" = "$key_pub" ] && pass || fail "key does not match certificate"
[ "$(in_sandbox stat -c %a "$key")" = 600 ] && pass || fail "private key is not mode 0600"

# The extension file must work the way certificate generation uses it,
# and what it writes to /var/certs must land in the sandbox.
issued=$(in_sandbox sh -c 'cd /var/certs &&
    openssl req -new -key "$1" -subj /CN=probe -out probe.csr 2>/dev/null &&
    openssl x509 -req -in probe.csr -signkey "$1" -days 1 \
        -extfile /conf/certs/server/cert_v3_extfile.ext -out probe.pem 2>/dev/null &&
    openssl x509 -in probe.pem -noout -text' sh "$key")
expect_match "extfile: server auth" 'TLS Web Server Authentication' "$issued"
expect_match "extfile: subject alt name" 'DNS:bmc\.local' "$issued"
[ -s "$root/var/certs/probe.pem" ] && pass || fail "/var/certs is not ROOT/var/certs"

# --- configuration files name the default pair, and only there
tunnel=$(in_sandbox cat /conf/adviserd/stunnel.conf)
[ "$(grep -F 'cert =' <<<"$tunnel")" = "cert = $cert" ] && pass || fail "stunnel cert line"
[ "$(grep -F 'key =' <<<"$tunnel")" = "key = $key" ] && pass || fail "stunnel key line"
expect_match "lighttpd client CA" '^\s*ssl\.ca-file = "/conf/certs/client/ca\.pem"' \
    "$(in_sandbox cat /conf/lighttpd/lighttpd.conf)"

# --- the service manager stand-in records and appends
expect_status "systemctl restart" 0 in_sandbox systemctl restart stunnel.service
expect_status "systemctl twice" 0 in_sandbox sh -c \
    'systemctl restart lighttpd.service && systemctl stop stunnel.service'
[ "$(cat "$root/state/services.log" 2>/dev/null)" = $'restart stunnel.service\nrestart lighttpd.service\nstop stunnel.service' ] \
    && pass || fail "services.log: $(cat "$root/state/services.log" 2>&1)"

# --- nothing reaches the host: files stay in ROOT, mounts die with the sandbox
probe=sandbox-probe-$$-$RANDOM
expect_status "write inside" 0 in_sandbox sh -c "echo x > /conf/$probe"
[ ! -e "/conf/$probe" ] && pass || fail "write to /conf reached the host"
[ -e "$root/conf/$probe" ] && pass || fail "write to /conf did not reach ROOT/conf"
[ "$(wc -l </proc/self/mountinfo)" -eq "$mounts_before" ] && ! grep -qF "$root" /proc/self/mountinfo \
    && pass || fail "sandbox mounts leaked into the host"

# --- runs keep their files; a lost marker reprovisions; --fresh empties
first=$(fingerprint)
[ -n "$first" ] && [ "$(fingerprint)" = "$first" ] && pass || fail "second run replaced the certificate"
expect_status "second run keeps files" 0 in_sandbox test -e "/conf/$probe"
rm "$root/.provisioned"
[ "$(fingerprint)" != "$first" ] && pass || fail "lost marker did not reprovision"
expect_status "fresh run" 0 "$tool" --fresh "$root" -- true
[ ! -e "$root/conf/$probe" ] && [ ! -e "$root/state/services.log" ] && [ ! -e "$root/var/certs/probe.pem" ] \
    && pass || fail "--fresh left files behind"

echo "$passed passed, $failed failed"
[ "$failed" -eq 0 ]
