#!/usr/bin/env bash
# The armhf sysroot of the cross build: Debian 12's armhf packages of every
# library the library, the stand-in, the tool and the tests link, unpacked
# under DIR (default build-armhf/sysroot). Nothing is installed on this
# machine; the downloads are kept under DIR/../debian for the next run.
# Packages are unpacked, not resolved: libcurl4 comes with the whole
# closure of what it loads at run time (Kerberos, LDAP, SASL, GnuTLS for
# RTMP, IDN and the public suffix list), so that the library loads under
# qemu-arm.
set -euo pipefail
here=$(dirname "$0")
sysroot=${1:-build-armhf/sysroot}
exec bash "$here/debian-fetch.sh" "$(dirname "$sysroot")/debian" "$sysroot" armhf bookworm \
  libc6 libgcc-s1 libstdc++6 \
  libssl3 libssl-dev \
  libsqlite3-0 libsqlite3-dev \
  libpcre2-8-0 libpcre2-dev \
  libgtest-dev libcli11-dev \
  libjansson4 libjansson-dev \
  libcurl4 libcurl4-openssl-dev \
  libnghttp2-14 libidn2-0 libpsl5 librtmp1 libssh2-1 libbrotli1 libzstd1 zlib1g \
  libgssapi-krb5-2 libkrb5-3 libk5crypto3 libkrb5support0 libcom-err2 libkeyutils1 \
  libldap-2.5-0 libsasl2-2 libsasl2-modules-db libdb5.3 \
  libgnutls30 libnettle8 libhogweed6 libgmp10 libp11-kit0 libtasn1-6 libunistring2 libffi8
