#!/usr/bin/env bash
# Installs the Debian 12 packages that the build, the tests, the GCC build, clang-tidy, the
# package, its signing and checks, and the demo need. Does nothing when they are all there already, so it is safe to run
# again. Every package is named here and installed without its recommendations: those would
# bring the whole LLVM development kit (llvm-16-dev) and, for Wine, fonts, sound, graphics and
# the 32-bit loader, none of which the suite uses.
set -euo pipefail

packages=(
    cmake
    ninja-build
    g++-mingw-w64-x86-64-posix
    binutils-mingw-w64-x86-64
    wine64
    googletest
    nlohmann-json3-dev
    # The release build (preset windows-x64: clang, lld, PDB files; llvm-readobj and
    # llvm-pdbutil read them), the native build of the text code (sanitizers, libFuzzer), the MSVC
    # import library (llvm-dlltool), its client test (lld-link, llvm-nm) and clang-tidy.
    clang-16
    lld-16
    libclang-rt-16-dev
    llvm-16
    clang-tidy-16
    # The format check of the suite (.clang-format).
    clang-format-16
    # The release package: its ZIPs, their check, Authenticode signing, and the throwaway
    # time-stamp server of that check.
    zip
    unzip
    openssl
    osslsigncode
    socat
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

if ((${#missing[@]} > 0)); then
    sudo=""
    if [ "$(id -u)" -ne 0 ]; then
        sudo="sudo"
    fi
    echo "Installing: ${missing[*]}"
    $sudo apt-get update -qq
    DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends \
        "${missing[@]}" </dev/null
fi
