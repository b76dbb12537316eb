#!/usr/bin/env bash
# Checks bmc-sandbox --services where the end-to-end tests do not: a
# restart answers only once the new process serves, a unit that cannot
# start fails its restart, sandboxes side by side keep apart, and the
# services go whenever the command or the tool ends. Runs as root, like
# CI. Every client call is bounded by timeout.
#   usage: services_test.sh BMC_SANDBOX WORK_DIR
set -u
passed=0 failed=0
check() {  # NAME COMMAND...: passes when COMMAND succeeds
    if "${@:2}"; then passed=$((passed + 1)); else failed=$((failed + 1)); echo "FAIL: $1" >&2; fi
}
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
state=$root/state
port_open() { timeout 5 bash -c "exec 3<>/dev/tcp/127.0.0.1/$1" 2>/dev/null; }
env_port() { sed -n "s/^$2=//p" "$1/state/services.env"; }
ports() { sed -n 's/.*_PORT=//p' "$1/state/services.env" | sort -u; }
apart() { [ -n "$(ports "$root")" ] && [ -z "$(comm -12 <(ports "$root") <(ports "$other"))" ]; }
# Waits up to 10 s for a file of a background sandbox.
wait_file() { for _ in $(seq 100); do [ -e "$1" ] && return 0; sleep 0.1; done; return 1; }
# True once none of the pids listed in FILE is alive (waits up to 10 s).
all_gone() {
    timeout 10 bash -c 'for p in $(cat "$1"); do while kill -0 $p 2>/dev/null; do sleep 0.1; done; done' _ "$1"
}
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

mkdir -p "$work"
if ! "$tool" --fresh --services "$root" -- true; then
    echo "FAIL: a sandbox with services cannot be started" >&2
    echo "0 passed, 1 failed"
    exit 1
fi

# --- provisioning: the combined file the web server serves
check "server.pem is factory certificate then key" \
    cmp -s "$root/conf/certs/server/server.pem" \
    <(cat "$root/conf/certs/server/default/server.pem" "$root/conf/certs/server/default/privkey.pem")
check "server.pem is mode 0600" [ "$(stat -c %a "$root/conf/certs/server/server.pem")" = 600 ]
"$tool" --services --services "$root" -- true 2>/dev/null
check "--services twice is a usage error" [ $? -eq 2 ]

"$tool" --services "$root" -- bash "$(realpath "$0")" --inside
check "the checks inside the sandbox pass" [ $? -eq 0 ]
check "the controller's files keep the controller's ports" \
    grep -q '^accept = :::7582$' "$root/conf/adviserd/stunnel.conf"
check "without --services systemctl only records" \
    "$tool" "$root" -- sh -c 'systemctl restart stunnel.service && test ! -S /var/lib/bmc-sim/run/control.sock'

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
    b=$(env_port "$other" BMC_SIM_HTTPS_PORT)
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
