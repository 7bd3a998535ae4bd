#!/usr/bin/env bash
# Builds the library, the tool and the tests, and runs the whole test suite under Wine; then
# builds the text code natively and runs its unit tests under sanitizers and each fuzz target
# for a bounded time.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/bootstrap.sh
cmake --preset windows-x64
cmake --build --preset windows-x64
ctest --preset windows-x64

cmake --preset linux-fuzz
cmake --build --preset linux-fuzz
ctest --preset linux-fuzz
