#!/usr/bin/env bash
# Builds the library, the tool and the tests, and runs the whole test suite under Wine; builds
# the same sources with clang (warnings are errors; the suite is not run twice), runs clang-tidy
# over src/ and tools/ and makes the release package; then builds the text code natively and
# runs its unit tests under sanitizers and each fuzz target for a bounded time. Any failure ends
# the script with a non-zero status.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/bootstrap.sh
cmake --preset windows-x64
cmake --build --preset windows-x64
ctest --preset windows-x64

cmake --preset windows-x64-clang
cmake --build --preset windows-x64-clang
scripts/tidy.sh
scripts/package.sh

cmake --preset linux-fuzz
cmake --build --preset linux-fuzz
ctest --preset linux-fuzz
