#!/usr/bin/env bash
# The checks that run after the test suite in CI: the whole suite under
# AddressSanitizer + UndefinedBehaviorSanitizer and under ThreadSanitizer,
# the tool's tests with the tool under valgrind, and a short run of every
# fuzz target.
# Each stage prints its time.
#   usage: scripts/hardening.sh [asan|tsan|valgrind|fuzz]...
set -euo pipefail
cd "$(dirname "$0")/.."
stages=("$@")
[ "${#stages[@]}" -gt 0 ] || stages=(asan tsan valgrind fuzz)
jobs=$(nproc)

sanitized_suite() {  # BUILD_DIR SANITIZERS
    # The link against the controller's own libraries is the same with or
    # without a sanitizer, and the native suite holds the long crash test.
    cmake -S . -B "$1" -DCMAKE_BUILD_TYPE=Debug -DBMCCERT_SANITIZE="$2" -DBMCCERT_BENCH=OFF -DBMCCERT_CRASH_KILLS=10 \
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
        # The tool's flows are those of its tests (tests/cli/*.sh), each run
        # in a fresh sandbox with the tool under memcheck. A report makes
        # the tool exit 99, which the tests' status checks catch, and is
        # kept in a log that must stay empty.
        cmake --build build -j "$jobs" --target bmccert_cli bmc-sandbox bmc-sim >/dev/null
        logs=$PWD/build/valgrind-logs
        rm -rf "$logs" && mkdir -p "$logs"
        printf '#!/bin/sh\nexec valgrind -q --error-exitcode=99 --leak-check=full %s %s "$@"\n' \
            "--errors-for-leak-kinds=definite --show-leak-kinds=definite --log-file=$logs/%p" \
            "$PWD/build/bin/bmccert" >build/valgrind-bmccert
        chmod +x build/valgrind-bmccert
        for script in tests/cli/*.sh; do
            build/bin/bmc-sandbox --fresh "$PWD/build/sandbox/valgrind-$(basename "$script" .sh)" -- \
                bash "$script" "$PWD/build/valgrind-bmccert" "$PWD/build/bin/bmc-sim"
        done
        if [ -n "$(find "$logs" -type f -size +0c)" ]; then
            find "$logs" -type f -size +0c -exec cat {} +
            exit 1
        fi ;;
    fuzz)
        FUZZ_SECONDS=${FUZZ_SECONDS:-10} bash scripts/fuzz.sh ;;
    *)
        echo "unknown stage $stage" >&2
        exit 2 ;;
    esac
    echo "== hardening: $stage took $((SECONDS - start)) s"
done
