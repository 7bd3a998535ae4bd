#!/usr/bin/env bash
# Builds the benchmark and runs it under Wine in a prefix of its own, which is made fresh and
# stopped again. Arguments, if any, are the product counts to time (default 500 2000 10000);
# the ratio and calls lines at its end are printed when 2000 is among them, the load line always.
set -euo pipefail
cd "$(dirname "$0")/.."

build=build/windows-x64
prefix="$PWD/$build/bench-prefix"

nice -n 10 cmake --preset windows-x64 >/dev/null
nice -n 10 cmake --build --preset windows-x64 --target zel_registry_bench

scripts/wine-prefix start "$prefix"
trap 'scripts/wine-prefix stop "$prefix" >/dev/null' EXIT
WINEPREFIX="$prefix" "$build/wine-run" "$build/bin/zel_registry_bench.exe" "$@"
