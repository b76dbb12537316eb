#!/usr/bin/env bash
# The library's dynamic symbols must be exactly the export list: no C++
# symbols, no internal functions, nothing missing.
set -euo pipefail
nm=$1
library=$2
exports=$3
expected=$(grep -E '^[A-Za-z_]' "$exports" | sort)
# Each carries the library's version node, BMCCERT_<major>, which itself
# shows as an absolute symbol.
defined=$("$nm" -D --defined-only "$library" | awk '$2 != "A" {print $3}')
actual=$(echo "$defined" | sed 's/@@BMCCERT_[0-9]*$//' | sort)
if echo "$defined" | grep -qv '@@BMCCERT_[0-9]*$'; then
  echo "exported without the version node:"
  echo "$defined" | grep -v '@@BMCCERT_[0-9]*$'
  exit 1
fi
if [ "$expected" != "$actual" ]; then
  echo "exported symbols differ from $exports:"
  diff <(echo "$expected") <(echo "$actual") || true
  exit 1
fi
echo "exports match: $(echo "$actual" | wc -l) functions"
