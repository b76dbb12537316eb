#!/usr/bin/env bash
# Checks bmc-sandbox --services: real stunnel and lighttpd on loopback
# ports, restarted by the sandbox's systemctl, gone when the command ends.
# Runs as root, like CI. Every client call is bounded by timeout.
#   usage: services_test.sh BMC_SANDBOX WORK_DIR
set -u
tool=$(realpath "$1")
work=$2
root=$work/root
passed=0
failed=0

pass() { passed=$((passed + 1)); }
fail() { failed=$((failed + 1)); echo "FAIL: $*" >&2; }
check() {  # NAME COMMAND...: passes when COMMAND succeeds
    local name=$1
    shift
    "$@" && pass || fail "$name"
}
not() { ! "$@"; }

# Serial of the certificate a TLS server on 127.0.0.1:PORT presents.
served_serial() {
    timeout 10 openssl s_client -connect "127.0.0.1:$1" </dev/null 2>/dev/null |
        openssl x509 -noout -serial 2>/dev/null
}
file_serial() { openssl x509 -noout -serial -in "$1"; }
port_open() { timeout 5 bash -c "exec 3<>/dev/tcp/127.0.0.1/$1" 2>/dev/null; }
env_port() { sed -n "s/^$2=//p" "$1/state/services.env"; }
# Waits up to 10 s for the state file NAME of a background sandbox.
wait_file() { for _ in $(seq 100); do [ -e "$1" ] && return 0; sleep 0.1; done; return 1; }
# True once none of the pids listed in FILE is alive (waits up to 10 s).
all_gone() {
    for _ in $(seq 100); do
        local alive=0
        for pid in $(cat "$1"); do kill -0 "$pid" 2>/dev/null && alive=1; done
        [ "$alive" -eq 0 ] && return 0
        sleep 0.1
    done
    return 1
}

# Run inside a sandbox: writes the pids of the services in its mount
# namespace to /var/lib/bmc-sim/FILE, then signals readiness.
record_services='ns=$(readlink /proc/self/ns/mnt)
    for p in /proc/[0-9]*; do
        [ "$(readlink "$p/ns/mnt" 2>/dev/null)" = "$ns" ] || continue
        case $(cat "$p/comm" 2>/dev/null) in stunnel*|lighttpd) echo "${p#/proc/}";; esac
    done > /var/lib/bmc-sim/service-pids'

mkdir -p "$work"
if ! "$tool" --fresh --services "$root" -- true; then
    echo "FAIL: a sandbox with services cannot be started" >&2
    echo "0 passed, 1 failed"
    exit 1
fi
factory=$root/conf/certs/server/default/server.pem
user_cert=$root/conf/certs/server/user/actualcert.pem

# --- provisioning: the combined file the web server serves
check "server.pem is factory certificate then key" \
    cmp -s "$root/conf/certs/server/server.pem" \
    <(cat "$factory" "$root/conf/certs/server/default/privkey.pem")
check "server.pem is mode 0600" [ "$(stat -c %a "$root/conf/certs/server/server.pem")" = 600 ]
"$tool" --services --services "$root" -- true 2>/dev/null
check "--services twice is a usage error" [ $? -eq 2 ]
check "controller files keep controller ports" grep -q '^accept = :::7582$' "$root/conf/adviserd/stunnel.conf"

# --- one long sandbox: serve, replace the pair, restart, serve the new one
"$tool" --services "$root" -- sh -c '
    set -e
    . /var/lib/bmc-sim/services.env
    echo "$BMC_SIM_TUNNEL_PORT $BMC_SIM_HTTPS_PORT" > /var/lib/bmc-sim/ports-before
    touch /var/lib/bmc-sim/phase1
    while [ ! -e /var/lib/bmc-sim/go2 ]; do sleep 0.1; done

    cd /conf/certs/server/user
    openssl req -x509 -newkey rsa:2048 -nodes -days 2 -subj /CN=replaced.bmc.local \
        -keyout actualprivkey.pem -out actualcert.pem 2>/dev/null
    cat actualcert.pem actualprivkey.pem > /conf/certs/server/server.pem
    sed -i -e "s|^cert = .*|cert = /conf/certs/server/user/actualcert.pem|" \
           -e "s|^key = .*|key = /conf/certs/server/user/actualprivkey.pem|" /conf/adviserd/stunnel.conf
    systemctl restart stunnel.service
    touch /var/lib/bmc-sim/phase2
    while [ ! -e /var/lib/bmc-sim/go3 ]; do sleep 0.1; done
    systemctl restart lighttpd.service
    touch /var/lib/bmc-sim/phase3
    while [ ! -e /var/lib/bmc-sim/go4 ]; do sleep 0.1; done

    # the library'"'"'s delayed restart of the web server, through /bin/sh
    openssl req -x509 -newkey rsa:2048 -nodes -days 2 -subj /CN=delayed.bmc.local \
        -keyout /var/certs/k.pem -out /var/certs/c.pem 2>/dev/null
    cat /var/certs/c.pem /var/certs/k.pem > /conf/certs/server/server.pem
    /bin/sh -c "sleep 2 && systemctl restart lighttpd.service &"
    touch /var/lib/bmc-sim/phase4
    while [ ! -e /var/lib/bmc-sim/go5 ]; do sleep 0.1; done

    # a service that cannot start: the restart fails and says why
    sed -i "s|^cert = .*|cert = /conf/certs/server/user/missing.pem|" /conf/adviserd/stunnel.conf
    if systemctl restart stunnel.service 2>/var/lib/bmc-sim/restart-error; then exit 3; fi
    sed -i "s|^cert = .*|cert = /conf/certs/server/user/actualcert.pem|" /conf/adviserd/stunnel.conf
    systemctl restart stunnel.service
    '"$record_services"'
    touch /var/lib/bmc-sim/phase5
    while [ ! -e /var/lib/bmc-sim/go6 ]; do sleep 0.1; done
' &
tool_pid=$!
state=$root/state
rm -f "$state"/phase* "$state"/go* "$state/service-pids"

if wait_file "$state/phase1"; then
    tunnel=$(env_port "$root" BMC_SIM_TUNNEL_PORT)
    https=$(env_port "$root" BMC_SIM_HTTPS_PORT)
    check "services.env names both ports" [ -n "$tunnel" -a -n "$https" -a "$tunnel" != "$https" ]
    check "services.env is what the command sourced" [ "$(cat "$state/ports-before")" = "$tunnel $https" ]
    check "tunnel serves the factory certificate" [ "$(served_serial "$tunnel")" = "$(file_serial "$factory")" ]
    check "web server serves the factory certificate" [ "$(served_serial "$https")" = "$(file_serial "$factory")" ]
    check "derived stunnel.conf accepts on loopback" grep -q "^accept = 127.0.0.1:$tunnel\$" "$state/run/stunnel.conf"
    check "derived lighttpd.conf binds loopback" grep -q '^server.bind = "127.0.0.1"$' "$state/run/lighttpd.conf"
    touch "$state/go2"
else
    fail "the long sandbox did not start"
fi

if wait_file "$state/phase2"; then
    new=$(file_serial "$user_cert")
    check "tunnel serves the new certificate right after the restart" [ "$(served_serial "$tunnel")" = "$new" ]
    check "web server still serves the factory one" [ "$(served_serial "$https")" = "$(file_serial "$factory")" ]
    touch "$state/go3"
else
    fail "restart of stunnel.service failed"
fi

if wait_file "$state/phase3"; then
    check "web server serves the new certificate right after the restart" [ "$(served_serial "$https")" = "$new" ]
    check "ports survive restarts" [ "$(env_port "$root" BMC_SIM_TUNNEL_PORT) $(env_port "$root" BMC_SIM_HTTPS_PORT)" = "$tunnel $https" ]
    touch "$state/go4"
else
    fail "restart of lighttpd.service failed"
fi

if wait_file "$state/phase4"; then
    delayed=$(file_serial "$root/var/certs/c.pem")
    check "delayed restart has not happened at once" [ "$(served_serial "$https")" = "$new" ]
    seen=""
    for _ in $(seq 50); do
        seen=$(served_serial "$https")
        [ "$seen" = "$delayed" ] && break
        sleep 0.2
    done
    check "delayed restart through /bin/sh serves the new certificate" [ "$seen" = "$delayed" ]
    touch "$state/go5"
else
    fail "the long sandbox stopped before the delayed restart"
fi

if wait_file "$state/phase5"; then
    check "failed start is reported on stderr" grep -q 'stunnel.service' "$state/restart-error"
    check "failed start names the missing file" grep -q 'missing.pem' "$state/restart-error"
    check "tunnel back after a good restart" [ "$(served_serial "$tunnel")" = "$new" ]
    check "services.log records every restart" [ "$(grep -c '^restart stunnel.service$' "$state/services.log")" -ge 3 ]
    check "service pids recorded" [ -s "$state/service-pids" ]
    touch "$state/go6"
else
    fail "failed restart was not reported as a failure: $(cat "$state/restart-error" 2>&1)"
    touch "$state/go6"
fi
wait "$tool_pid"
status=$?
check "long sandbox exits 0 (got $status)" [ "$status" -eq 0 ]
check "services stop when the command ends" all_gone "$state/service-pids"
check "tunnel port closed" not port_open "$tunnel"
check "https port closed" not port_open "$https"
check "services.env removed" [ ! -e "$state/services.env" ]
check "without --services systemctl only records" \
    "$tool" "$root" -- sh -c 'systemctl restart stunnel.service && test ! -S /var/lib/bmc-sim/run/control.sock'

# --- two sandboxes side by side get different ports and serve their own
other=$work/other
"$tool" --fresh --services "$other" -- true || fail "second sandbox"
for r in "$root" "$other"; do rm -f "$r/state/up" "$r/state/down"; done
for r in "$root" "$other"; do
    "$tool" --services "$r" -- sh -c 'touch /var/lib/bmc-sim/up
        while [ ! -e /var/lib/bmc-sim/down ]; do sleep 0.1; done' &
done
if wait_file "$root/state/up" && wait_file "$other/state/up"; then
    a=$(env_port "$root" BMC_SIM_HTTPS_PORT) b=$(env_port "$other" BMC_SIM_HTTPS_PORT)
    check "side by side: different web ports" [ -n "$a" -a -n "$b" -a "$a" != "$b" ]
    check "side by side: different tunnel ports" \
        [ "$(env_port "$root" BMC_SIM_TUNNEL_PORT)" != "$(env_port "$other" BMC_SIM_TUNNEL_PORT)" ]
    check "side by side: the second serves its own certificate" \
        [ "$(served_serial "$b")" = "$(file_serial "$other/conf/certs/server/server.pem")" ]
    check "side by side: the two certificates differ" [ "$(served_serial "$a")" != "$(served_serial "$b")" ]
    check "a third sandbox on a busy ROOT is refused" not "$tool" --services "$root" -- true 2>/dev/null
fi
touch "$root/state/down" "$other/state/down"
wait

# --- every way the command or the tool can end stops the services
ends() {  # NAME: starts a sandbox, ends it by NAME, checks the services are gone
    local name=$1 pids=$root/state/service-pids
    rm -f "$pids" "$root/state/up"
    case $name in
    command-killed)
        "$tool" --services "$root" -- sh -c "$record_services"'
            touch /var/lib/bmc-sim/up; kill -KILL $$'
        check "$name: exit status 137" [ $? -eq 137 ] ;;
    tool-sigterm | tool-sigkill)
        "$tool" --services "$root" -- sh -c "$record_services"'
            echo $$ > /var/lib/bmc-sim/command-pid; touch /var/lib/bmc-sim/up
            exec sleep 60' &
        local pid=$!
        wait_file "$root/state/up" || fail "$name: sandbox did not start"
        case $name in tool-sigterm) kill -TERM "$pid" ;; *) kill -KILL "$pid" ;; esac
        wait "$pid" 2>/dev/null ;;
    esac
    local port=$(env_port "$root" BMC_SIM_HTTPS_PORT 2>/dev/null)
    check "$name: pids recorded" [ -s "$pids" ]
    check "$name: no stunnel or lighttpd of the sandbox remains" all_gone "$pids"
    [ -z "$port" ] || check "$name: port closed" not port_open "$port"
    if [ "$name" = tool-sigkill ]; then
        # The command outlives a killed tool (as without --services); the
        # next run clears what the killed supervisor left.
        kill "$(cat "$root/state/command-pid")" 2>/dev/null
        check "$name: next run without services only records" \
            "$tool" "$root" -- sh -c 'systemctl restart lighttpd.service'
        check "$name: next run with services starts" "$tool" --services "$root" -- true
    fi
}
ends command-killed
ends tool-sigterm
ends tool-sigkill

echo "$passed passed, $failed failed"
[ "$failed" -eq 0 ]
