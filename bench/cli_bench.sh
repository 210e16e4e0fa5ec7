#!/usr/bin/env bash
# How fast tallowinctl starts and lists a disk with 60 volumes and a GPT with 128 entries, against
# a peer, and the memory that it takes. Ratios below 1 mean that tallowinctl is faster.
#   bench/cli_bench.sh [PROGRAM]     default: build/release/tallowinctl
set -euo pipefail
program=$(readlink -f "${1:-$(dirname "$0")/../build/release/tallowinctl}")
[ -x "$program" ] || { echo "build it first: cmake --build --preset release" >&2; exit 1; }
PATH=/usr/sbin:/sbin:$PATH
for needed in hyperfine parted sfdisk; do
  command -v "$needed" >/dev/null || { echo "needs $needed" >&2; exit 1; }
done
[ -x /usr/bin/time ] || { echo "needs the package time" >&2; exit 1; }
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
image=$folder/disk.img

truncate -s 1G "$image"
script=(mklabel msdos mkpart primary ext4 1MiB 5MiB mkpart extended 8MiB 1000MiB)
for i in $(seq 60); do
  script+=(mkpart logical ext4 "$((16 * i))MiB" "$((16 * i + 12))MiB")
done
parted -s "$image" "${script[@]}" 2>/dev/null

gpt=$folder/gpt.img
truncate -s 1G "$gpt"
{ echo 'label: gpt'; for _ in $(seq 128); do echo 'size=4M,type=L'; done; } | sfdisk -q "$gpt"

# The mean time of a command in seconds.
seconds() {
  hyperfine -N --warmup 10 --min-runs 200 --export-csv "$folder/times.csv" "$1" >/dev/null 2>&1
  sed -n 2p "$folder/times.csv" | cut -d, -f2
}

compare() { # what, ours, peer's
  local ours peer
  ours=$(seconds "$2") peer=$(seconds "$3")
  awk -v what="$1" -v a="$ours" -v b="$peer" \
    'BEGIN { printf "%-28s %.2f  (%.2f ms against %.2f ms)\n", what, a / b, a * 1e3, b * 1e3 }'
}

memory() { # what, command ...
  local what=$1 peak
  shift
  peak=$(/usr/bin/time -f %M "$@" 2>&1 >/dev/null | tail -n 1)
  printf '%-28s %s KiB\n' "$what, peak memory" "$peak"
}

compare "version / sfdisk --version" "$program --version" "sfdisk --version"
compare "list 60 volumes / sfdisk -J" "$program list $image --json" "sfdisk -J $image"
compare "list GPT of 128 / sfdisk -J" "$program list $gpt --json" "sfdisk -J $gpt"
memory "version" "$program" --version
memory "list 60 volumes" "$program" list "$image" --json
memory "list GPT of 128" "$program" list "$gpt" --json
