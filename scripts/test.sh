#!/usr/bin/env bash
# Builds the library, the tool and the tests with the release build (preset windows-x64: clang 16
# and lld) and runs the whole test suite under Wine; builds the DLL and zelplat with GCC (preset
# windows-x64-gcc: warnings are errors; the suite is not run twice), runs clang-tidy over src/ and
# tools/, makes the release package from the tested build and checks it (reproducible, symbols,
# signing); then builds the text code natively and runs its unit tests under sanitizers and each
# fuzz target for a bounded time. Any failure ends the script with a non-zero status.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/bootstrap.sh
cmake --preset windows-x64
cmake --build --preset windows-x64
ctest --preset windows-x64

cmake --preset windows-x64-gcc
# The shipped binaries only: the tests compile under clang with warnings as errors already, and
# building them twice would cost CI about ten minutes.
cmake --build --preset windows-x64-gcc --target ZelPlatformMethods64 zelplat
scripts/tidy.sh
scripts/package.sh
scripts/check-release.sh

cmake --preset linux-fuzz
cmake --build --preset linux-fuzz
ctest --preset linux-fuzz
