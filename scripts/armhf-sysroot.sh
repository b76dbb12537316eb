#!/usr/bin/env bash
# The armhf sysroot of the cross build: Debian 12's armhf packages of every
# library the library, the stand-in, the tool and the tests link, unpacked
# under DIR (default build-armhf/sysroot). Nothing is installed on this
# machine; the downloads are kept under DIR/../debian for the next run.
set -euo pipefail
here=$(dirname "$0")
sysroot=${1:-build-armhf/sysroot}
exec bash "$here/debian-fetch.sh" "$(dirname "$sysroot")/debian" "$sysroot" armhf bookworm \
  libc6 libgcc-s1 libstdc++6 \
  libssl3 libssl-dev \
  libsqlite3-0 libsqlite3-dev \
  libpcre2-8-0 libpcre2-dev \
  libgtest-dev libcli11-dev
