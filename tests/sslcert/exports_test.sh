#!/usr/bin/env bash
# The library's dynamic symbols must be exactly the export list: no C++
# symbols, no internal functions, nothing missing.
set -euo pipefail
library=$1
exports=$2
expected=$(grep -E '^[A-Za-z_]' "$exports" | sort)
actual=$(nm -D --defined-only "$library" | awk '{print $3}' | sort)
if [ "$expected" != "$actual" ]; then
  echo "exported symbols differ from $exports:"
  diff <(echo "$expected") <(echo "$actual") || true
  exit 1
fi
echo "exports match: $(echo "$actual" | wc -l) functions"
