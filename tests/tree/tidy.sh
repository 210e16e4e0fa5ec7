#!/usr/bin/env bash
# clang-tidy over everything that the given build folder has compiled. A file that was clean is not
# looked at again until it, something that it includes or the rules are changed; what was clean is
# remembered by the hash of all that, for every checkout of this user.
set -u
cd "$(dirname "$0")/../.." || exit 2
build=$1
export build
export clean=${XDG_CACHE_HOME:-$HOME/.cache}/tallowin-tidy
mkdir -p "$clean" || exit 2
work=$(mktemp -d) || exit 2
trap 'rm -rf "$work"' EXIT
find "$clean" -type f -mtime +30 -delete

# What ninja knows: an object's line, then the source and the headers, then an empty line.
(cd "$build" && ninja -t deps) | awk '/^ / && valid { print $1 } /^[^ ]/ { valid = /\(VALID\)/ }' |
  sort -u >"$work/files"
(cd "$build" && xargs sha256sum) <"$work/files" >"$work/hashes"
rules=$( (cat .clang-tidy tests/.clang-tidy && clang-tidy --version) | sha256sum | cut -d' ' -f1)

# "SOURCE HASHES" for each source of ours.
(cd "$build" && ninja -t deps) | awk -v hashes="$work/hashes" -v top="$PWD/" -v rules="$rules" '
  BEGIN { while ((getline line <hashes) > 0) hash[substr(line, 67)] = substr(line, 1, 64) }
  function done() { if (source != "") print source, key; source = "" }
  /^[^ ]/ { done(); first = /\(VALID\)/; next }
  /^ / && first { source = $1; key = rules; first = 0 }
  /^ / && source != "" { key = key hash[$1] }
  END { done() }' | sort -u >"$work/sources"
git ls-files 'src/*.cpp' 'tests/*.cpp' >"$work/wanted"
while read -r source hashes; do
  file=$(realpath --relative-to=. "$build/$source" 2>/dev/null)
  [ "${source#/}" = "$source" ] || file=${source#"$PWD/"}
  echo "$file $(sha256sum <<<"$hashes" | cut -d' ' -f1)"
done <"$work/sources" >"$work/keys"
awk 'NR == FNR { key[$1] = $2; next } { print $1, ($1 in key ? key[$1] : "unknown") }' \
  "$work/keys" "$work/wanted" |
  while read -r file key; do [ -e "$clean/$key" ] || echo "$file $key"; done >"$work/todo"

# The precompiled headers are those of another compiler.
sed 's/-Winvalid-pch -include [^ "]*//' "$build/compile_commands.json" >"$work/compile_commands.json"
export work
look() {
  clang-tidy -quiet -p "$work" "$1" 2>/dev/null || return 1
  [ "$2" = unknown ] || : >"$clean/$2"
}
export -f look
echo "$(wc -l <"$work/todo") of $(wc -l <"$work/wanted") files to look at."
xargs -r -P "$(nproc)" -L 1 bash -c 'look "$1" "$2"' look <"$work/todo"
