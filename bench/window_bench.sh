#!/usr/bin/env bash
# Time from start to the window shown, against an empty window of the toolkit, and peak memory.
#   window_bench.sh TALLOWIN EMPTY_WINDOW IMAGE
set -euo pipefail
program=$(realpath "$1") empty=$(realpath "$2") image=$(realpath "$3")
folder=$(mktemp -d)
Xvfb -displayfd 3 -screen 0 1024x768x24 -nolisten tcp -noreset 3>"$folder/number" 2>/dev/null &
server=$!
trap 'kill $server; rm -rf "$folder"' EXIT
until [ -s "$folder/number" ]; do sleep 0.05; done
DISPLAY=:$(cat "$folder/number")
export DISPLAY TALLOWIN_HOME=$folder
# A window that nobody frames and focuses starts quicker than any person sees.
openbox --sm-disable >/dev/null 2>&1 &
manager=$!
trap 'kill $manager $server; rm -rf "$folder"' EXIT
until xdotool get_desktop >/dev/null 2>&1; do sleep 0.05; done

# shown_ms TITLE COMMAND...: prints tenths of milliseconds, and the peak memory in KiB.
shown_ms() {
  local title=$1 from to child
  shift
  from=$(date +%s%N)
  "$@" >/dev/null &
  child=$!
  # Its own waiting sleeps for half a second at a time.
  until xdotool search --onlyvisible --name "^$title\$" >/dev/null 2>&1; do :; done
  to=$(date +%s%N)
  echo $(((to - from) / 100000)) "$(awk '/VmHWM/ {print $2}' "/proc/$child/status")"
  kill $child
  wait $child 2>/dev/null || true
}

for _ in $(seq 15); do
  shown_ms "Empty window" "$empty" >>"$folder/empty"
  shown_ms "Tallowin 1.32" "$program" -nd "-img:$image" >>"$folder/full"
done
median() { sort -n "$1" | sed -n 8p; }
read -r a am < <(median "$folder/empty")
read -r b bm < <(median "$folder/full")
awk -v a="$a" -v b="$b" -v am="$am" -v bm="$bm" 'BEGIN {
  printf "empty window %.1f ms, %.1f MiB; main window %.1f ms, %.1f MiB; ratio %.2f\n",
         a / 10, am / 1024, b / 10, bm / 1024, b / a }'
