#!/usr/bin/env bash
# Runs every fuzz target of the native build for SECONDS each (default 300) and prints, per
# target, how many inputs it ran and whether it crashed. Inputs it finds are kept under
# build/linux-fuzz/fuzz-corpus/, crashes under build/linux-fuzz/fuzz-crashes/.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-300}

scripts/bootstrap.sh
cmake --preset linux-fuzz >/dev/null
cmake --build --preset linux-fuzz

build=build/linux-fuzz
mkdir -p "$build/fuzz-crashes"
status=0
for target in "$build"/tests/native/fuzz_*; do
    name=$(basename "$target")
    mkdir -p "$build/fuzz-corpus/$name"
    log="$build/fuzz-crashes/$name.log"
    if "$target" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 -print_final_stats=1 \
        -artifact_prefix="$build/fuzz-crashes/$name-" \
        "$build/fuzz-corpus/$name" "tests/fuzz/corpus/$name" >"$log" 2>&1; then
        verdict="no crash"
    else
        verdict="CRASHED (see $log)"
        status=1
    fi
    runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -1)
    printf '%-28s %12s executions  %s\n' "$name" "${runs:-?}" "$verdict"
done
exit $status
