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

# The native build of the text code (sanitizers, libFuzzer). Named one by one and without
# recommendations, which would bring the whole LLVM development kit along.
native_packages=(
    clang-16
    lld-16
    libclang-rt-16-dev
)

# Prints the packages of the list that are not installed yet.
missing_of() {
    for package in "$@"; do
        if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed"; then
            echo "$package"
        fi
    done
}

mapfile -t missing < <(missing_of "${packages[@]}")
mapfile -t missing_native < <(missing_of "${native_packages[@]}")

if ((${#missing[@]} + ${#missing_native[@]} > 0)); then
    sudo=""
    if [ "$(id -u)" -ne 0 ]; then
        sudo="sudo"
    fi
    echo "Installing: ${missing[*]} ${missing_native[*]}"
    $sudo apt-get update -qq
    if ((${#missing[@]} > 0)); then
        DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq "${missing[@]}" </dev/null
    fi
    if ((${#missing_native[@]} > 0)); then
        DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends \
            "${missing_native[@]}" </dev/null
    fi
fi
