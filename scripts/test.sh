#!/usr/bin/env bash
# Builds the library, the tool and the tests, and runs the whole test suite under Wine.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/bootstrap.sh
cmake --preset windows-x64
cmake --build --preset windows-x64
ctest --preset windows-x64
