#!/usr/bin/env bash
# clang-tidy over everything that the given build folder compiles for the programs.
cd "$(dirname "$0")/../.." || exit 2
git ls-files 'src/*.cpp' | xargs -P "$(nproc)" -n 6 clang-tidy -quiet -p "$1" 2>/dev/null
