#!/usr/bin/env bash
# Builds the release with the windows-x64 preset (the build the test suite runs) and packs what a
# Windows developer takes, into $ZEL_PACKAGE_DIR (default build/package):
#   ZelPlatformMethods64-<version>-win64.zip        the installed tree
#   ZelPlatformMethods64-<version>-win64-debug.zip  the binaries' PDB files as a symbol store
#   SHA256SUMS                                      checked with `sha256sum -c`
#
# The same commit gives the same bytes, in any folder and at any time: the binaries carry no build
# time or path (cmake/ZelReleaseBinaries.cmake), and the ZIPs list their files in byte order with
# the commit's time (SOURCE_DATE_EPOCH when the environment sets it) and fixed permissions.
#
# With ZEL_SIGN_PKCS12 and ZEL_SIGN_PASSWORD_FILE set, the DLL and zelplat.exe in the ZIP are
# signed with Authenticode and verified before packing (scripts/sign.sh says how, and names the
# optional ZEL_SIGN_TIMESTAMP_URL and ZEL_SIGN_CAFILE). Settings that cannot sign stop the script
# before it builds. The package folder is replaced only once everything in it is made and
# checked: a failure leaves no package, half-signed or otherwise.
set -euo pipefail
export LC_ALL=C
cd "$(dirname "$0")/.."
root=$(pwd)
build="$root/build/windows-x64"
package="${ZEL_PACKAGE_DIR:-$root/build/package}"

fail() {
    echo "package.sh: $*" >&2
    exit 1
}

scripts/bootstrap.sh
scripts/sign.sh --check

if [ -z "${SOURCE_DATE_EPOCH:-}" ]; then
    SOURCE_DATE_EPOCH=$(git -C "$root" log -1 --format=%ct 2>/dev/null) ||
        fail "no git commit to date the release by: set SOURCE_DATE_EPOCH (seconds since 1970)"
fi
export SOURCE_DATE_EPOCH

# Configuring again changes nothing when nothing changed (the delay-import libraries are made
# again only when their names change), and takes up a new commit's time.
cmake --preset windows-x64 >/dev/null
cmake --build --preset windows-x64 --target zel_release

version=$(sed -n 's/^CMAKE_PROJECT_VERSION:STATIC=//p' "$build/CMakeCache.txt")
name="ZelPlatformMethods64-$version-win64"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cmake --install "$build" --component Runtime --prefix "$work/$name" >/dev/null
cmake --install "$build" --component Debug --prefix "$work/$name-debug" >/dev/null

if [ -n "${ZEL_SIGN_PKCS12:-}" ]; then
    scripts/sign.sh "$work/$name/bin/ZelPlatformMethods64.dll" "$work/$name/bin/zelplat.exe"
fi

# zip FOLDER: FOLDER.zip holding FOLDER's files (no top folder) in byte order, with the release's
# time and permissions 0644, without directory entries or extra fields (owner, time zone).
zip_folder() {
    local folder=$1
    find "$work/$folder" -exec touch -h -d "@$SOURCE_DATE_EPOCH" {} +
    find "$work/$folder" -type f -exec chmod 0644 {} +
    (cd "$work/$folder" && find . -type f | sed 's|^\./||' | sort |
        TZ=UTC zip -X -D -q -@ "$work/out/$folder.zip")
}
mkdir "$work/out"
zip_folder "$name"
zip_folder "$name-debug"
(cd "$work/out" && sha256sum -- *.zip >SHA256SUMS && sha256sum -c --quiet SHA256SUMS)

rm -rf "$package"
mkdir -p "$(dirname "$package")"
mv "$work/out" "$package"
echo "package.sh: $package"
(cd "$package" && cat SHA256SUMS)
