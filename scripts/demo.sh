#!/usr/bin/env bash
# Builds the library and zelplat, makes a Wine prefix that looks like a sample workstation
# (demo/workstation.reg) and asks zelplat the support questions there.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)

scripts/bootstrap.sh
cmake --preset windows-x64 >/dev/null
cmake --build --preset windows-x64 --target zelplat

wine64=/usr/lib/wine/wine64
[ -x "$wine64" ] || wine64=$(command -v wine64)
bin="$root/build/windows-x64/bin"
prefix="$root/build/demo-prefix"
export WINEPREFIX="$prefix" WINEDEBUG=-all

echo "Preparing the sample workstation in $prefix ..."
scripts/wine-prefix start "$prefix" >/dev/null
trap 'scripts/wine-prefix stop "$prefix" >/dev/null' EXIT
"$wine64" reg import "Z:${root//\//\\}\\demo\\workstation.reg" </dev/null >/dev/null 2>&1

# Shows each command, its answer and explanation, and a non-zero exit code.
zelplat() {
    echo "\$ zelplat $*"
    local status=0
    "$wine64" "$bin/zelplat.exe" "$@" </dev/null 2>&1 | tr -d '\r' || status=${PIPESTATUS[0]}
    if [ "$status" -ne 0 ]; then
        echo "(exit code $status)"
    fi
    echo
}

zelplat enrollment get
zelplat enrollment set AGILE
zelplat enrollment get
zelplat enrollment set agile
zelplat file-version 'C:\windows\system32\kernel32.dll'
zelplat file-version 'Z:'"${bin//\//\\}"'\ZelPlatformMethods64.dll'
