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
# A configured build is only brought up to date (the build step configures again when a CMake
# file changed): configuring anew would remake the delay-import libraries and relink everything.
if [ ! -f "$build/CMakeCache.txt" ]; then
    cmake --preset windows-x64 >/dev/null
fi
cmake --build --preset windows-x64

rm -rf "$package" "$build/cpack"
(cd "$build" && cpack -G ZIP -B "$build/cpack")
mkdir -p "$package"
cp "$build"/cpack/*.zip "$package"/
cd "$package"
sha256sum -- *.zip >SHA256SUMS
sha256sum -c SHA256SUMS
