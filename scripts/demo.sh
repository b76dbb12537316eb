#!/usr/bin/env bash
# The main job on a factory-fresh sandboxed controller: which server
# certificate is in force, where its files lie, and its information, read
# from the files the first time and served from the database afterwards.
set -euo pipefail
bmccert=$1

step() { printf '\n$ bmccert %s\n' "$*"; "$bmccert" "$@"; }

step type
step paths 4
step info
echo "(first read: from the certificate files, then stored in the configuration database)"
step info --json
echo "(second read: served from the configuration database)"
step days-left
printf '\ndiagnostics written by the library (/var/lib/bmc-sim/diag.log):\n'
cat /var/lib/bmc-sim/diag.log 2>/dev/null || true
