#!/usr/bin/env bash
# The tool's end-to-end flows under valgrind's memcheck: no invalid access,
# no use of uninitialised memory, no definite leak, in the tool, the library
# and the stand-in (the openssl and shell children are not traced). Runs
# inside bmc-sandbox.
#   usage: tool_flows.sh PATH-TO-BMCCERT
set -u
tool=${1:?usage: tool_flows.sh PATH-TO-BMCCERT}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
passed=0
failed=0

memcheck() {  # NAME ARG...: the tool under memcheck must exit 0
    local name=$1
    shift
    if valgrind -q --error-exitcode=99 --leak-check=full --errors-for-leak-kinds=definite \
        --show-leak-kinds=definite "$tool" "$@" >"$work/out" 2>"$work/err"; then
        passed=$((passed + 1))
    else
        failed=$((failed + 1))
        echo "FAIL: $name (exit $?)" >&2
        tail -n 30 "$work/err" >&2
    fi
}

openssl req -x509 -newkey rsa:2048 -nodes -keyout "$work/up.key" -out "$work/up.crt" -days 30 \
    -subj /CN=valgrind.example -addext extendedKeyUsage=serverAuth 2>/dev/null

memcheck "info from the files" info
memcheck "info from the database" info --json
memcheck "generate" generate --cn bmc.example --org Works --ou Lab --locality Town --state North \
    --country DE --email ops@bmc.example --key-length 1024
memcheck "upload as a task" upload "$work/up.crt" "$work/up.key"
memcheck "client authentication status" auth status

# A root, a client certificate it signed, bound to the administrator.
openssl req -x509 -newkey rsa:2048 -nodes -keyout "$work/root.key" -out "$work/root.pem" \
    -days 30 -subj /CN=valgrind-root 2>/dev/null
openssl req -newkey rsa:2048 -nodes -keyout "$work/client.key" -out "$work/client.csr" \
    -subj /CN=valgrind-client 2>/dev/null
openssl x509 -req -in "$work/client.csr" -CA "$work/root.pem" -CAkey "$work/root.key" \
    -CAcreateserial -days 30 -out "$work/client.pem" 2>/dev/null
serial=$(openssl x509 -noout -serial -in "$work/client.pem" | sed 's/^serial=//')
memcheck "root import" roots import "$work/root.pem"
memcheck "root certificates" roots
memcheck "client import" clients import "$work/client.pem" --root 1
memcheck "binding" bind 1 2
memcheck "switching authentication on" auth enable 1
memcheck "login by serial number" login --serial "$serial"

echo "$passed passed, $failed failed"
[ "$failed" -eq 0 ]
