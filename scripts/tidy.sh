#!/usr/bin/env bash
# Runs clang-tidy (the checks of .clang-tidy) over every source of src/ and tools/, with the
# compile commands of the windows-x64 build. Any finding is an error: the script then fails.
#   scripts/tidy.sh [BUILD_DIR]     (default build/windows-x64; configured if need be)
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)
build=${1:-build/windows-x64}

if [ ! -f "$build/compile_commands.json" ]; then
    cmake --preset windows-x64 >/dev/null
fi

# clang-tidy infers the mingw-w64 target from the compiler's name but, like clang, does not find
# GCC's libstdc++ headers of the posix thread model by itself.
gcc_dir=/usr/lib/gcc/x86_64-w64-mingw32/12-posix
started=$(date +%s)
run-clang-tidy-16 -quiet -j "${ZEL_TIDY_JOBS:-2}" -p "$build" -clang-tidy-binary clang-tidy-16 \
    -extra-arg="-isystem$gcc_dir/include/c++" \
    -extra-arg="-isystem$gcc_dir/include/c++/x86_64-w64-mingw32" \
    -extra-arg="-isystem$gcc_dir/include/c++/backward" \
    "^$root/(src|tools)/"
echo "clang-tidy: no findings in src/ and tools/ ($(($(date +%s) - started)) s)"
