#!/usr/bin/env bash
# Checks bmc-sandbox from outside and from inside its namespace. Runs as
# root, like CI; a sandbox that cannot be created is a failure, not a skip.
#   usage: sandbox_test.sh BMC_SANDBOX WORK_DIR
set -u
tool=$(realpath "$1")
work=$2
root=$work/root
passed=0 failed=0

pass() { passed=$((passed + 1)); }
fail() { failed=$((failed + 1)); echo "FAIL: $*" >&2; }
expect_status() {  # NAME WANTED COMMAND...
    "${@:3}" >/dev/null 2>&1
    local got=$?
    [ "$got" -eq "$2" ] && pass || fail "$1: exit status $got, wanted $2"
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
[ "$(cd "$work" && "$tool" root -- printenv BMC_SANDBOX_ROOT)" = "$root" ] && pass || fail "relative root"

# A link planted in the root must not carry provisioning outside it.
mkdir -p "$work/linked/elsewhere" && ln -sfn elsewhere "$work/linked/conf"
expect_status "link in root" 125 "$tool" "$work/linked" -- true
[ -z "$(ls -A "$work/linked/elsewhere")" ] && pass || fail "provisioning followed a link out of ROOT"

# --- the command's fate is the tool's exit status (a signal's and the
# tool's own SIGTERM are in services_test.sh)
expect_status "exit status" 7 in_sandbox sh -c 'exit 7'
expect_status "not executable" 127 in_sandbox /nonexistent/program

# --- the factory key is private (the library's suites read the certificate,
# the services serve it)
[ "$(in_sandbox stat -c %a "$key")" = 600 ] && pass || fail "private key is not mode 0600"

# --- nothing reaches the host: files stay in ROOT, mounts die with the sandbox
probe=sandbox-probe-$$-$RANDOM
expect_status "write inside" 0 in_sandbox sh -c "for d in /conf /var/certs /var/lib/bmc-sim; do echo x > \$d/$probe; done"
[ ! -e "/conf/$probe" ] && [ ! -e "/var/certs/$probe" ] && [ ! -e "/var/lib/bmc-sim/$probe" ] \
    && pass || fail "a write reached the host"
[ "$(find "$root" -name "$probe" | wc -l)" -eq 3 ] && pass || fail "a write did not reach ROOT"
[ "$(wc -l </proc/self/mountinfo)" -eq "$mounts_before" ] && ! grep -qF "$root" /proc/self/mountinfo \
    && pass || fail "sandbox mounts leaked into the host"

# --- runs keep their files; a lost marker reprovisions; --fresh empties
first=$(fingerprint)
[ -n "$first" ] && [ "$(fingerprint)" = "$first" ] && pass || fail "second run replaced the certificate"
expect_status "second run keeps files" 0 in_sandbox test -e "/conf/$probe"
rm "$root/.provisioned"
[ "$(fingerprint)" != "$first" ] && pass || fail "lost marker did not reprovision"
expect_status "fresh run" 0 "$tool" --fresh "$root" -- true
[ -z "$(find "$root" -name "$probe")" ] && pass || fail "--fresh left files behind"

echo "$passed passed, $failed failed"
[ "$failed" -eq 0 ]
