#!/usr/bin/env bash
# The library's dynamic symbols must be exactly the export lists, each at its
# version node: no C++ symbols, no internal functions, nothing missing.
set -euo pipefail
nm=$1
library=$2
exports_1=$3
exports_1_1=$4
exports_1_2=$5
names() { grep -E '^[A-Za-z_]' "$1" | sed "s/\$/@@$2/"; }
expected=$( (names "$exports_1" BMCCERT_1; names "$exports_1_1" BMCCERT_1.1; names "$exports_1_2" BMCCERT_1.2) | sort)
# The version nodes themselves show as absolute symbols.
actual=$("$nm" -D --defined-only "$library" | awk '$2 != "A" {print $3}' | sort)
if [ "$expected" != "$actual" ]; then
  echo "exported symbols differ from $exports_1, $exports_1_1 and $exports_1_2:"
  diff <(echo "$expected") <(echo "$actual") || true
  exit 1
fi
echo "exports match: $(echo "$actual" | wc -l) functions"
