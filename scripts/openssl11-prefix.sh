#!/usr/bin/env bash
# OpenSSL 1.1.1 beside the system's OpenSSL 3: Debian 11's libssl1.1,
# libssl-dev and openssl unpacked into a private prefix DIR (default
# build-openssl11/openssl11), never installed. It leaves there:
#   bin/openssl   the 1.1.1 tool with its own libraries and configuration,
#                 to put first on PATH
#   cache.cmake   the settings that make a build compile and link against it
set -euo pipefail
here=$(dirname "$0")
prefix=$(realpath -m "${1:-build-openssl11/openssl11}")
bash "$here/debian-fetch.sh" "$(dirname "$prefix")/debian" "$prefix" amd64 bullseye \
  libssl1.1 libssl-dev openssl

arch=$(dpkg-architecture -qDEB_HOST_MULTIARCH 2>/dev/null || echo x86_64-linux-gnu)
libdir=$prefix/usr/lib/$arch
# The compiler would otherwise take the system's OpenSSL 3 configuration
# header from its own multiarch directory; static archives are not wanted.
cp "$prefix/usr/include/$arch/openssl/"*.h "$prefix/usr/include/openssl/"
rm -f "$libdir"/libssl.a "$libdir"/libcrypto.a

mkdir -p "$prefix/bin"
cat >"$prefix/bin/openssl" <<WRAPPER
#!/bin/sh
LD_LIBRARY_PATH="$libdir" OPENSSL_CONF="$prefix/etc/ssl/openssl.cnf" exec "$prefix/usr/bin/openssl" "\$@"
WRAPPER
chmod +x "$prefix/bin/openssl"

cat >"$prefix/cache.cmake" <<CACHE
set(OPENSSL_ROOT_DIR "$prefix/usr" CACHE PATH "")
set(OPENSSL_INCLUDE_DIR "$prefix/usr/include" CACHE PATH "")
set(OPENSSL_SSL_LIBRARY "$libdir/libssl.so" CACHE FILEPATH "")
set(OPENSSL_CRYPTO_LIBRARY "$libdir/libcrypto.so" CACHE FILEPATH "")
set(BMCCERT_ACME OFF CACHE BOOL "")
CACHE
echo "openssl11: $("$prefix/bin/openssl" version) in $prefix"
