#!/usr/bin/env bash
# Builds the fuzz targets with clang, AddressSanitizer and
# UndefinedBehaviorSanitizer, replays the regression inputs, then runs every
# target for FUZZ_SECONDS (default 60) from its committed seeds, each in its
# own fresh sandboxed controller. Fails on any crash, leak or timeout; a
# crashing input is left under BUILD/artifacts/ to become a regression
# input in fuzz/regressions/TARGET/.
#   usage: scripts/fuzz.sh [TARGET...]
set -euo pipefail
cd "$(dirname "$0")/.."
build=${FUZZ_BUILD_DIR:-build-fuzz}
seconds=${FUZZ_SECONDS:-60}
# The sandboxes live in memory where there is some: the targets that write
# files flush them to disk at every input.
sandboxes=${FUZZ_SANDBOX_DIR:-$PWD/$build/sandbox}
if [ -z "${FUZZ_SANDBOX_DIR:-}" ] && [ -d /dev/shm ] && [ -w /dev/shm ]; then
    sandboxes=/dev/shm/bmccert-fuzz-$$
    trap 'rm -rf "$sandboxes"' EXIT
fi

CC=clang CXX=clang++ cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DBMCCERT_FUZZ=ON -DBMCCERT_SANITIZE=address,undefined -DBMCCERT_TESTS=OFF \
    -DBMCCERT_BENCH=OFF >/dev/null
targets=("$@")
[ "${#targets[@]}" -gt 0 ] || targets=(dump_line_fuzz x509_extract_fuzz stunnel_rewrite_fuzz
                                         upload_chain_fuzz time_text_fuzz web_config_fuzz
                                         file_name_fuzz alt_name_fuzz signed_chain_fuzz
                                         service_ports_fuzz revocation_answer_fuzz acme_json_fuzz
                                         acme_token_fuzz)
cmake --build "$build" -j "$(nproc)" --target bmc-sandbox "${targets[@]}"

export UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1
export ASAN_OPTIONS=detect_leaks=1
status=0
for target in "${targets[@]}"; do
    corpus=$build/corpus/$target
    artifacts=$build/artifacts/$target/
    mkdir -p "$corpus" "$artifacts"
    run() {
        "$build/bin/bmc-sandbox" --fresh "$sandboxes/$target" -- \
            "$PWD/$build/bin/$target" -timeout=20 -rss_limit_mb=2048 \
            -artifact_prefix="$PWD/$artifacts" "$@"
    }
    regressions=fuzz/regressions/$target
    if [ -d "$regressions" ] && [ -n "$(ls -A "$regressions")" ]; then
        echo "== $target: replaying $(ls "$regressions" | wc -l) regression inputs"
        run "$PWD/$regressions"/* || { status=1; continue; }
    fi
    echo "== $target: fuzzing for ${seconds}s"
    run -max_total_time="$seconds" -print_final_stats=1 "$PWD/$corpus" "$PWD/fuzz/seeds/$target" \
        2>"$build/$target.log" || { status=1; tail -n 40 "$build/$target.log"; continue; }
    grep -E '^stat::(number_of_executed_units|average_exec_per_sec|peak_rss_mb)' \
        "$build/$target.log" | tr '\n' ' '
    echo
done
exit "$status"
