#!/usr/bin/env bash
# The main job on a factory-fresh sandboxed controller: which server
# certificate is in force, where its files lie, and its information, read
# from the files the first time and served from the database afterwards.
set -euo pipefail
bmccert=$1
diag=/var/lib/bmc-sim/diag.log

step() { printf '\n$ bmccert %s\n' "$*"; "$bmccert" "$@"; }
new_diagnostics() {
    local seen=$1
    printf '\n-- library diagnostics since the last step (%s):\n' "$diag"
    tail -n +"$((seen + 1))" "$diag" 2>/dev/null || true
}
diag_lines() { wc -l < "$diag" 2>/dev/null || echo 0; }

step type
step paths 4

seen=$(diag_lines)
step info
echo "(no stored record yet: read from the certificate files, then stored in the configuration database)"
new_diagnostics "$seen"

seen=$(diag_lines)
step info --json
echo "(served from the configuration database: no openssl run, no diagnostics)"
new_diagnostics "$seen"

step days-left
