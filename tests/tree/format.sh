#!/usr/bin/env bash
# The layout of every source file is what clang-format makes of it.
cd "$(dirname "$0")/../.." || exit 2
wrong=$(git ls-files '*.cpp' '*.h' | xargs clang-format --dry-run 2>&1 | grep -oE '^[^ :]+:[0-9]+' | sort -u)
[ -z "$wrong" ] || { echo "clang-format would change:"; echo "$wrong"; exit 1; }
