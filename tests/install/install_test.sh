#!/usr/bin/env bash
# cmake --install of this build, then a C program built against the
# installed tree twice, through the CMake package and through pkg-config,
# and run in a fresh sandboxed controller. CONSUMER_LDFLAGS says where the
# library's own dependencies lie when they are not the system's; in a cross
# build CONSUMER_CMAKE_ARGS names the toolchain and RUN the emulator.
set -euo pipefail
build=$1 sandbox=$2 work=$3 source=$4 cc=$5
rm -rf "$work"
prefix=$work/prefix
cmake --install "$build" --prefix "$prefix" >"$work.log" 2>&1 || { cat "$work.log"; exit 1; }
fail() { echo "install: $*" >&2; exit 1; }

lib=$prefix/lib
for f in include/lib_security_sslcert.h include/lib_security_sslcert_ext.h include/lib_ssl_auth.h lib/libbmccert.so \
         lib/libbmccert.so.1 lib/cmake/bmccert/bmccertConfig.cmake lib/pkgconfig/bmccert.pc; do
  [ -e "$prefix/$f" ] || fail "$f not installed"
done
[ ! -e "$prefix/bin" ] || fail "tools installed without BMCCERT_INSTALL_TOOLS"
readelf -d "$lib/libbmccert.so.1" | grep -q 'SONAME.*\[libbmccert\.so\.1\]' || fail "SONAME is not libbmccert.so.1"
if grep -q BMCCERT_PLATFORM:STRING=host "$build/CMakeCache.txt"; then
  [ -e "$lib/libbmcplatform.so" ] || fail "host build without the stand-in beside the library"
fi
for elf in "$lib"/*.so*; do
  paths=$(readelf -d "$elf" | sed -n 's/.*R\(UN\)\{0,1\}PATH.*\[\(.*\)\]/\2/p')
  [ -z "$paths" ] || [ "$paths" = '$ORIGIN' ] || fail "$elf searches $paths"
done

read -r -a run <<<"${RUN:-}"
# A cross build finds packages only under its roots: the prefix becomes one.
roots=()
[ -z "${CONSUMER_CMAKE_ARGS:-}" ] || roots=(-DCMAKE_FIND_ROOT_PATH="$prefix")
cmake -S "$(dirname "$0")/consumer" -B "$work/cmake" -DCMAKE_PREFIX_PATH="$prefix" "${roots[@]}" \
  -DCONSUMER_SOURCE="$source" -DCMAKE_C_COMPILER="$cc" -DCMAKE_EXE_LINKER_FLAGS="${CONSUMER_LDFLAGS:-}" \
  ${CONSUMER_CMAKE_ARGS:-} >"$work.log" 2>&1 ||
  { cat "$work.log"; exit 1; }
cmake --build "$work/cmake" >"$work.log" 2>&1 || { cat "$work.log"; exit 1; }
"$sandbox" --fresh "$work/root" -- "${run[@]}" "$work/cmake/consumer"

flags=$(PKG_CONFIG_PATH=$lib/pkgconfig pkg-config --cflags --libs bmccert)
# shellcheck disable=SC2086 # the flags are words
"$cc" -std=c99 -pedantic-errors -o "$work/pkgconfig-consumer" "$source" $flags \
  -Wl,-rpath,"$(PKG_CONFIG_PATH=$lib/pkgconfig pkg-config --variable=libdir bmccert)" ${CONSUMER_LDFLAGS:-}
"$sandbox" --fresh "$work/root" -- "${run[@]}" "$work/pkgconfig-consumer"
