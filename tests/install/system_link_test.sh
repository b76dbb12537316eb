#!/usr/bin/env bash
# BMCCERT_PLATFORM=system, as a firmware project builds it: bmccert as a
# subdirectory, linked against platform libraries of the controller's names
# that this test makes itself (stubs: only their names and symbols matter)
# in a sysroot of its own. The library must need nothing of the stand-in
# and leave exactly the platform calls its sources make undefined.
set -euo pipefail
source_dir=$1 work=$2 consumer=$3
rm -rf "$work"
mkdir -p "$work/sysroot/usr/lib"
fail() { echo "system link: $*" >&2; exit 1; }

declared=$(grep -oE '^BMC_PLATFORM_API [^(]*[ *]([A-Za-z_0-9]+)\(' "$source_dir/platform/bmc_platform.h" |
  sed -E 's/.*[ *]([A-Za-z_0-9]+)\($/\1/' | sort -u)
# Which library holds which call does not matter to the link; each library
# gets the calls of one family so that every one of them is a real library.
library_of() {
  case $1 in
    CFGM_* | CC_* | DB_*) echo cfgm ;;
    LIB_USERPRIV_*) echo userauthority ;;
    LIB_USER_*) echo userlocal ;;
    FILEHANDLE_*) echo filehandle ;;
    HW_LIB_*) echo hw_desc ;;
    OPERATELOG_*) echo operatelog ;;
    TASK_*) echo taskservice ;;
    *) echo bmcpub ;;
  esac
}
libs="bmcpub cfgm userlocal userauthority filehandle hw_desc operatelog taskservice"
for lib in $libs; do : >"$work/$lib.c"; done
for name in $declared; do echo "void $name(void) {}" >>"$work/$(library_of "$name").c"; done
for lib in $libs; do cc -shared -fPIC -o "$work/sysroot/usr/lib/lib$lib.so" "$work/$lib.c"; done

cmake -S "$source_dir/tests/install/firmware" -B "$work/build" \
  -DBMCCERT_SOURCE_DIR="$source_dir" -DCONSUMER_SOURCE="$consumer" -DBMCCERT_PLATFORM=system \
  -DBMCCERT_TOOLS=ON \
  -DCMAKE_FIND_ROOT_PATH="$work/sysroot" >"$work/configure.log" 2>&1 ||
  { cat "$work/configure.log"; exit 1; }
cmake --build "$work/build" -j 2 >"$work/build.log" 2>&1 || { cat "$work/build.log"; exit 1; }
library=$work/build/bmccert/lib/libbmccert.so.1
[ -e "$library" ] || fail "no $library"
[ ! -e "$work/build/bmccert/lib/libbmcplatform.so" ] || fail "the stand-in was built"
# Of the tools only bmccert, and no test: a field engineer's tool on the
# controller, over the library and the platform calls the library makes.
[ "$(ls "$work/build/bmccert/bin")" = bmccert ] || fail "built: $(ls "$work/build/bmccert/bin")"
tool_undefined=$(nm -D --undefined-only "$work/build/bmccert/bin/bmccert" | awk '$1 == "U" && $2 !~ /@/ {print $2}')
if echo "$tool_undefined" | grep -q '^BMCSIM_'; then fail "the tool calls into the stand-in"; fi
"$work/build/bmccert/bin/bmccert" --help | grep -q "This is a controller build" ||
  fail "the controller build's help does not say what it lacks"
"$work/build/bmccert/bin/bmccert" tasks >/dev/null 2>&1 && fail "a controller build has tasks"

link=$(cat "$work/build/bmccert/CMakeFiles/bmccert.dir/link.txt")
for lib in $libs; do
  [[ $link == *"$work/sysroot/usr/lib/lib$lib.so"* ]] ||
    [[ $link == *"-L$work/sysroot/usr/lib "*"-l$lib "* ]] || fail "lib$lib.so not on the link line"
done
needed=$(readelf -d "$library" | sed -n 's/.*NEEDED.*\[\(.*\)\]/\1/p')
if echo "$needed" | grep -q bmcplatform; then fail "needs the stand-in"; fi
echo "needed: $(echo $needed)"

# The platform's calls are the undefined symbols without a version; the C
# library's, the C++ library's and OpenSSL's all carry one.
undefined=$(nm -D --undefined-only "$library" | awk '$1 == "U" && $2 !~ /@/ {print $2}' | sort)
if echo "$undefined" | grep -q '^BMCSIM_'; then fail "calls into the stand-in"; fi
used=$(for name in $declared; do
  if grep -rqw "$name" "$source_dir"/frame "$source_dir"/sslcert "$source_dir"/sslauth 2>/dev/null; then echo "$name"; fi
done | sort)
if [ "$undefined" != "$used" ]; then
  echo "undefined platform calls differ from those the sources make (< sources, > library):"
  diff <(echo "$used") <(echo "$undefined") || true
  exit 1
fi
echo "platform calls: $(echo "$undefined" | wc -l), linked from the sysroot's libraries"
