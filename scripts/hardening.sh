#!/usr/bin/env bash
# The checks that run after the test suite in CI: the whole suite under
# AddressSanitizer + UndefinedBehaviorSanitizer and under ThreadSanitizer,
# the tool's flows under valgrind, and a short run of every fuzz target.
# Each stage prints its time.
#   usage: scripts/hardening.sh [asan|tsan|valgrind|fuzz]...
set -euo pipefail
cd "$(dirname "$0")/.."
stages=("$@")
[ "${#stages[@]}" -gt 0 ] || stages=(asan tsan valgrind fuzz)
jobs=$(nproc)

sanitized_suite() {  # BUILD_DIR SANITIZERS
    # The link against the controller's own libraries is the same with or
    # without a sanitizer: the native suite checks it.
    cmake -S . -B "$1" -DCMAKE_BUILD_TYPE=Debug -DBMCCERT_SANITIZE="$2" -DBMCCERT_BENCH=OFF \
        -DBMCCERT_SYSTEM_LINK_TEST=OFF >/dev/null
    cmake --build "$1" -j "$jobs" >/dev/null
    (cd "$1" && ctest --output-on-failure -j 2)
}

for stage in "${stages[@]}"; do
    start=$SECONDS
    echo "== hardening: $stage"
    case $stage in
    asan)
        UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1 \
            sanitized_suite build-asan address,undefined ;;
    tsan)
        sanitized_suite build-tsan thread ;;
    valgrind)
        cmake --build build -j "$jobs" --target bmccert_cli bmc-sandbox >/dev/null
        build/bin/bmc-sandbox --fresh "$PWD/build/sandbox/valgrind" -- \
            bash tests/valgrind/tool_flows.sh "$PWD/build/bin/bmccert" ;;
    fuzz)
        FUZZ_SECONDS=${FUZZ_SECONDS:-10} bash scripts/fuzz.sh ;;
    *)
        echo "unknown stage $stage" >&2
        exit 2 ;;
    esac
    echo "== hardening: $stage took $((SECONDS - start)) s"
done
