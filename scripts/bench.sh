#!/usr/bin/env bash
# Builds the registry-search benchmark and runs it under Wine in a prefix of its own, which is
# made fresh and stopped again. Arguments, if any, are the product counts to time.
set -euo pipefail
cd "$(dirname "$0")/.."

build=build/windows-x64
prefix="$PWD/$build/bench-prefix"

cmake --preset windows-x64 >/dev/null
cmake --build --preset windows-x64 --target zel_registry_bench

scripts/wine-prefix start "$prefix"
trap 'scripts/wine-prefix stop "$prefix" >/dev/null' EXIT
WINEPREFIX="$prefix" "$build/wine-run" "$build/bin/zel_registry_bench.exe" "$@"
