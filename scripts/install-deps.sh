#!/usr/bin/env bash
# Installs the Debian packages that building and testing bmccert need,
# but only those that are missing, so a prepared machine pays nothing.
# `install-deps.sh armhf` adds the cross compiler and qemu-user of the
# armhf build (its target libraries are unpacked, not installed: see
# scripts/armhf-sysroot.sh).
set -euo pipefail

packages=(
  build-essential cmake pkg-config binutils
  libssl-dev openssl
  libsqlite3-dev libpcre2-dev
  libgtest-dev libbenchmark-dev libcli11-dev
  util-linux
  stunnel4 lighttpd lighttpd-mod-openssl
  clang libclang-rt-14-dev valgrind
  curl
  libcurl4-openssl-dev libjansson-dev pebble uacme
)
for group in "$@"; do
  case $group in
    armhf) packages+=(g++-arm-linux-gnueabihf qemu-user) ;;
    *) echo "install-deps: unknown group $group" >&2; exit 2 ;;
  esac
done

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$p")
  fi
done

if [ "${#missing[@]}" -eq 0 ]; then
  exit 0
fi

if [ "$(id -u)" -ne 0 ]; then
  echo "install-deps: missing packages (${missing[*]}); run this script as root" >&2
  exit 1
fi

echo "install-deps: installing ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
apt-get update -qq
apt-get install -y -qq --no-install-recommends "${missing[@]}"
