#!/usr/bin/env bash
# Builds the release with the windows-x64 preset and packs what a Windows developer takes:
#   build/package/ZelPlatformMethods64-<version>-win64.zip        the installed tree
#   build/package/ZelPlatformMethods64-<version>-win64-debug.zip  debug information of its binaries
#   build/package/SHA256SUMS                                       checked with `sha256sum -c`
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)
build="$root/build/windows-x64"
package="$root/build/package"

scripts/bootstrap.sh
cmake --preset windows-x64 >/dev/null
cmake --build --preset windows-x64

rm -rf "$package" "$build/cpack"
(cd "$build" && cpack -G ZIP -B "$build/cpack")
mkdir -p "$package"
cp "$build"/cpack/*.zip "$package"/
cd "$package"
sha256sum -- *.zip >SHA256SUMS
sha256sum -c SHA256SUMS
