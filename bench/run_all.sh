#!/usr/bin/env bash
# Runs every benchmark, each in a fresh sandboxed controller, and fails at
# the end when any of them missed a target: one run prints every figure.
#   usage: run_all.sh SANDBOX SANDBOX-ROOT BENCHMARK[:SANDBOX-OPTION]...
set -u
sandbox=$1 root=$2
shift 2
missed=()
for entry in "$@"; do
    binary=${entry%%:*} option=
    [[ $entry == *:* ]] && option=${entry#*:}
    name=$(basename "$binary")
    "$sandbox" --fresh $option "$root/$name" -- "$binary" || missed+=("$name")
done
if [ "${#missed[@]}" -gt 0 ]; then
    echo "bench: a target was missed in: ${missed[*]}" >&2
    exit 1
fi
