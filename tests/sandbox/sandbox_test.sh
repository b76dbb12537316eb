#!/usr/bin/env bash
# Checks bmc-sandbox from outside and from inside its namespace, then with
# --services where the end-to-end tests do not: a restart answers only
# once the new process serves, a unit that cannot start fails its restart,
# sandboxes side by side keep apart, and the services go whenever the
# command or the tool ends. Runs as root, like CI; a sandbox that cannot be
# created is a failure, not a skip. Every client call is bounded by timeout.
#   usage: sandbox_test.sh BMC_SANDBOX WORK_DIR
set -u
passed=0 failed=0
pass() { passed=$((passed + 1)); }
fail() { failed=$((failed + 1)); echo "FAIL: $*" >&2; }
check() { if "${@:2}"; then pass; else fail "$1"; fi; } # NAME COMMAND...: COMMAND succeeds
not() { ! "$@"; }
# Serial of the certificate a TLS server on 127.0.0.1:PORT presents.
served_serial() {
    timeout 10 openssl s_client -connect "127.0.0.1:$1" </dev/null 2>/dev/null |
        openssl x509 -noout -serial 2>/dev/null
}
file_serial() { openssl x509 -noout -serial -in "$1"; }

if [ "${1:-}" = --inside ]; then
    # Inside a sandbox with services (the end-to-end tests see the library
    # restart them): a restart answers only once the new process serves, and
    # a unit that cannot start fails it.
    . /var/lib/bmc-sim/services.env
    cd /conf/certs/server || exit 1
    openssl req -x509 -newkey rsa:2048 -nodes -days 2 -subj /CN=replaced.bmc.local \
        -keyout user/actualprivkey.pem -out user/actualcert.pem 2>/dev/null
    cat user/actualcert.pem user/actualprivkey.pem >server.pem
    sed -i -e "s|^cert = .*|cert = $PWD/user/actualcert.pem|" \
        -e "s|^key = .*|key = $PWD/user/actualprivkey.pem|" /conf/adviserd/stunnel.conf
    new=$(file_serial user/actualcert.pem)
    systemctl restart stunnel.service lighttpd.service
    check "the tunnel serves the new certificate once the restart returns" \
        [ "$(served_serial "$BMC_SIM_TUNNEL_PORT")" = "$new" ]
    check "so does the web server" [ "$(served_serial "$BMC_SIM_HTTPS_PORT")" = "$new" ]
    sed -i "s|^cert = .*|cert = $PWD/user/missing.pem|" /conf/adviserd/stunnel.conf
    error=$(systemctl restart stunnel.service 2>&1)
    check "a unit that cannot start fails its restart" [ $? -ne 0 ]
    check "... naming the unit and the missing file" \
        grep -qz 'restart of stunnel.service failed.*missing.pem' <<<"$error"
    sed -i "s|^cert = .*|cert = $PWD/user/actualcert.pem|" /conf/adviserd/stunnel.conf
    echo "inside: $passed passed, $failed failed"
    exit $((failed > 0))
fi

tool=$(realpath "$1")
work=$2
root=$work/root
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

"$tool" --fresh "$root" -- true || { echo "FAIL: the sandbox cannot be created" >&2; exit 1; }

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
mkdir -p "$work/foreign" "$work/home" && touch "$work/foreign/keep-me"
expect_status "foreign root" 2 "$tool" --fresh "$work/foreign" -- true
[ -e "$work/foreign/keep-me" ] && pass || fail "--fresh emptied a directory that is no sandbox"
HOME=$work/home expect_status "home directory" 2 "$tool" "$work/home" -- true
expect_status "colon in root" 2 "$tool" "$work/a:b" -- true

# The tools built beside the sandbox are on its PATH.
[ "$(in_sandbox sh -c 'command -v bmccert')" = "$(dirname "$(readlink -f "$tool")")/bmccert" ] &&
    pass || fail "bmccert beside bmc-sandbox is not on the sandbox's PATH"

# A root reached by a relative path works and is handed on absolute.
[ "$(cd "$work" && "$tool" root -- printenv BMC_SANDBOX_ROOT)" = "$root" ] && pass || fail "relative root"

# A link planted in the root must not carry provisioning outside it.
mkdir -p "$work/linked/elsewhere" && ln -sfn elsewhere "$work/linked/conf"
expect_status "link in root" 125 "$tool" "$work/linked" -- true
[ -z "$(ls -A "$work/linked/elsewhere")" ] && pass || fail "provisioning followed a link out of ROOT"

# --- the command's fate is the tool's exit status (a signal's, and the
# tool's own SIGTERM, are checked with --services below)
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


# === --services ==========================================================
state=$root/state
port_open() { timeout 5 bash -c "exec 3<>/dev/tcp/127.0.0.1/$1" 2>/dev/null; }
ports() { sed -n 's/.*_PORT=//p' "$1/state/services.env" | sort -u; }
apart() { [ -n "$(ports "$root")" ] && [ -z "$(comm -12 <(ports "$root") <(ports "$other"))" ]; }
# Waits up to 10 s for a file of a background sandbox.
wait_file() { for _ in $(seq 100); do [ -e "$1" ] && return 0; sleep 0.1; done; return 1; }
# True once none of the pids listed in FILE is alive (waits up to 10 s).
all_gone() { timeout 10 bash -c 'for p in $(<"$1"); do while kill -0 $p; do sleep 0.1; done; done' _ "$1" 2>/dev/null; }
# Run inside a sandbox: writes the pids of the services in its mount
# namespace to /var/lib/bmc-sim/service-pids and their web port to
# /var/lib/bmc-sim/port, then marks itself up.
record_services='ns=$(readlink /proc/self/ns/mnt)
    for p in /proc/[0-9]*; do
        [ "$(readlink "$p/ns/mnt" 2>/dev/null)" = "$ns" ] || continue
        case $(cat "$p/comm" 2>/dev/null) in stunnel*|lighttpd) echo "${p#/proc/}";; esac
    done > /var/lib/bmc-sim/service-pids
    . /var/lib/bmc-sim/services.env; echo $BMC_SIM_HTTPS_PORT > /var/lib/bmc-sim/port
    touch /var/lib/bmc-sim/up'

"$tool" --fresh --services "$root" -- true || { echo "FAIL: no sandbox with services" >&2; exit 1; }

# --- provisioning: the combined file the web server serves is private
check "server.pem is mode 0600" [ "$(stat -c %a "$root/conf/certs/server/server.pem")" = 600 ]

"$tool" --services "$root" -- bash "$(realpath "$0")" --inside
check "the checks inside the sandbox pass" [ $? -eq 0 ]
check "the controller's files keep the controller's ports" \
    grep -q '^accept = :::7582$' "$root/conf/adviserd/stunnel.conf"

# --- two sandboxes side by side get different ports and serve their own
other=$work/other
"$tool" --fresh --services "$other" -- true || check "a second sandbox starts" false
for r in "$root" "$other"; do
    rm -f "$r/state/up" "$r/state/down"
    "$tool" --services "$r" -- sh -c 'touch /var/lib/bmc-sim/up
        while [ ! -e /var/lib/bmc-sim/down ]; do sleep 0.1; done' &
done
if wait_file "$root/state/up" && wait_file "$other/state/up"; then
    check "side by side: no port in common" apart
    b=$(sed -n 's/^BMC_SIM_HTTPS_PORT=//p' "$other/state/services.env")
    check "side by side: the second serves its own certificate" \
        [ "$(served_serial "$b")" = "$(file_serial "$other/conf/certs/server/server.pem")" ]
    check "a third sandbox on a busy ROOT is refused" not "$tool" --services "$root" -- true 2>/dev/null
else
    check "both sandboxes start" false
fi
touch "$root/state/down" "$other/state/down"
wait

# --- every way the command or the tool can end stops the services
for end in command-exits command-KILL tool-TERM tool-KILL; do
    rm -f "$state/service-pids" "$state/up" "$state/port"
    case $end in
    command-*)
        "$tool" --services "$root" -- sh -c "$record_services"'
            [ '"$end"' = command-exits ] || kill -KILL $$' ;;
    tool-*)
        "$tool" --services "$root" -- sh -c "$record_services"'
            echo $$ > /var/lib/bmc-sim/command-pid; exec sleep 60' &
        pid=$!
        wait_file "$state/up" || check "$end: the sandbox starts" false
        kill -s "${end#tool-}" "$pid"
        wait "$pid" ;;
    esac
    # The command's own fate for the first three, the tool's for the last.
    check "$end: exit status" [ $? -eq "$(case $end in command-exits) echo 0 ;; tool-TERM) echo 143 ;;
        *) echo 137 ;; esac)" ]
    check "$end: pids recorded" [ -s "$state/service-pids" ]
    check "$end: no stunnel or lighttpd of the sandbox remains" all_gone "$state/service-pids"
    check "$end: port closed" not port_open "$(cat "$state/port")"
    [ $end = tool-KILL ] || check "$end: services.env removed" [ ! -e "$state/services.env" ]
done
# The command outlives a killed tool (as without --services); the next run
# clears what the killed supervisor left.
kill "$(cat "$state/command-pid")" 2>/dev/null
check "after a killed tool: the next run without services only records" \
    "$tool" "$root" -- sh -c 'systemctl restart lighttpd.service'
check "after a killed tool: the next run with services starts" "$tool" --services "$root" -- true

echo "$passed passed, $failed failed"
[ "$failed" -eq 0 ]
