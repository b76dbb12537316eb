#!/usr/bin/env bash
# Checks what keeps bmc-sandbox hermetic, where the suites that run in it
# would not notice a fault: it refuses to empty a directory that is no
# sandbox, hands on the command's exit status, keeps every write inside
# ROOT and every mount inside its namespace, and --fresh starts from
# nothing. The services it starts are exercised by the end-to-end tests.
# Runs as root, like CI; a sandbox that cannot be created is a failure.
#   usage: sandbox_test.sh BMC_SANDBOX WORK_DIR
set -u
passed=0 failed=0
pass() { passed=$((passed + 1)); }
fail() { failed=$((failed + 1)); echo "FAIL: $*" >&2; }

tool=$(realpath "$1")
work=$2
root=$work/root
expect_status() {  # NAME WANTED COMMAND...
    "${@:3}" >/dev/null 2>&1
    local got=$?
    [ "$got" -eq "$2" ] && pass || fail "$1: exit status $got, wanted $2"
}
in_sandbox() { "$tool" "$root" -- "$@"; }

mkdir -p "$work"
mounts_before=$(wc -l </proc/self/mountinfo)

"$tool" --fresh "$root" -- true || { echo "FAIL: the sandbox cannot be created" >&2; exit 1; }

# --- --fresh empties only a sandbox, refused before anything is touched
expect_status "empty root" 2 "$tool" --fresh "" -- true
# /proc cannot be emptied even if the guard fails, so it is a safe victim;
# the link proves the guard looks at the resolved path.
ln -sfn /proc "$work/link-to-proc"
expect_status "top-level root via a link" 2 "$tool" --fresh "$work/link-to-proc" -- true
mkdir -p "$work/foreign" "$work/home" && touch "$work/foreign/keep-me"
expect_status "foreign root" 2 "$tool" --fresh "$work/foreign" -- true
[ -e "$work/foreign/keep-me" ] && pass || fail "--fresh emptied a directory that is no sandbox"
HOME=$work/home expect_status "home directory" 2 "$tool" "$work/home" -- true

# A link planted in the root must not carry provisioning outside it.
mkdir -p "$work/linked/elsewhere" && ln -sfn elsewhere "$work/linked/conf"
expect_status "link in root" 125 "$tool" "$work/linked" -- true
[ -z "$(ls -A "$work/linked/elsewhere")" ] && pass || fail "provisioning followed a link out of ROOT"

# --- the command's fate is the tool's exit status: CTest sees a failure
expect_status "exit status" 7 in_sandbox sh -c 'exit 7'

# --- nothing reaches the host: files stay in ROOT, mounts die with the sandbox
probe=sandbox-probe-$$-$RANDOM
expect_status "write inside" 0 in_sandbox sh -c "for d in /conf /var/certs /var/lib/bmc-sim; do echo x > \$d/$probe; done"
[ ! -e "/conf/$probe" ] && [ ! -e "/var/certs/$probe" ] && [ ! -e "/var/lib/bmc-sim/$probe" ] \
    && pass || fail "a write reached the host"
[ "$(find "$root" -name "$probe" | wc -l)" -eq 3 ] && pass || fail "a write did not reach ROOT"
[ "$(wc -l </proc/self/mountinfo)" -eq "$mounts_before" ] && ! grep -qF "$root" /proc/self/mountinfo \
    && pass || fail "sandbox mounts leaked into the host"

# --- --fresh starts every test binary from nothing
expect_status "fresh run" 0 "$tool" --fresh "$root" -- true
[ -z "$(find "$root" -name "$probe")" ] && pass || fail "--fresh left files behind"

echo "$passed passed, $failed failed"
[ "$failed" -eq 0 ]
