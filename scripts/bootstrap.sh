#!/usr/bin/env bash
# Installs the Debian 12 packages that the build, the tests and the demo need. Does nothing when
# they are all there already, so it is safe to run again.
set -euo pipefail

packages=(
    cmake
    ninja-build
    g++-mingw-w64-x86-64-posix
    binutils-mingw-w64-x86-64
    wine64
    googletest
    nlohmann-json3-dev
)

missing=()
for package in "${packages[@]}"; do
    if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed"; then
        missing+=("$package")
    fi
done

if ((${#missing[@]} > 0)); then
    sudo=""
    if [ "$(id -u)" -ne 0 ]; then
        sudo="sudo"
    fi
    echo "Installing: ${missing[*]}"
    $sudo apt-get update -qq
    DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq "${missing[@]}" </dev/null
fi
