#!/usr/bin/env bash
# Before the suite runs against OpenSSL 1.1.1 (make test-openssl11): the
# library must load the private prefix's libssl.so.1.1 and the tool first on
# the suite's PATH must be 1.1.1, or the run would prove nothing.
set -euo pipefail
build=$1
prefix=$(realpath "$build/openssl11")
library=$build/lib/libbmccert.so
loaded=$(ldd "$library" | awk '$1 ~ /^lib(ssl|crypto)\.so/ {print $1, $3}')
echo "$loaded"
for lib in libssl.so.1.1 libcrypto.so.1.1; do
  echo "$loaded" | grep -q "^$lib $prefix/" || { echo "check-openssl11: $library does not load $prefix's $lib" >&2; exit 1; }
done
if echo "$loaded" | grep -q '\.so\.3 '; then
  echo "check-openssl11: $library also loads OpenSSL 3" >&2
  exit 1
fi
version=$(PATH=$prefix/bin:$PATH openssl version)
case $version in
  "OpenSSL 1.1.1"*) echo "tool: $version" ;;
  *) echo "check-openssl11: openssl on PATH is '$version'" >&2; exit 1 ;;
esac
