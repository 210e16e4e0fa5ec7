#!/usr/bin/env bash
# The arrows point one way: a file under src/ includes only headers of its own folder and of the
# folders that src/layers.txt gives it; of a room only its public headers are included from outside;
# the toolkit is included by src/ui alone.
set -u
cd "$(dirname "$0")/../.." || exit 2
bad=0
complain() { echo "$1"; bad=1; }

declare -A uses=() public=()
while IFS=: read -r name rest; do
  case $name in
    room\ *) public[${name#room }]=" $(echo $rest) " ;;
    '' | \#*) ;;
    *) uses[$name]=" $(echo $rest) " ;;
  esac
done <src/layers.txt

while IFS=: read -r file line include; do
  own=${file#src/}
  own=${own%%/*}
  wanted=${include%%/*}
  [ -n "${uses[$own]+there}" ] || { complain "$file: src/layers.txt does not know its folder"; continue; }
  [[ $wanted = "$own" || ${uses[$own]} == *" $wanted "* ]] ||
    complain "$file:$line: $own may not include $include"
  room=$(dirname "$include")
  [ -n "${public[$room]+there}" ] && [[ $wanted != "$own" ]] &&
    [[ ${public[$room]} != *" $(basename "$include") "* ]] &&
    complain "$file:$line: $include is inside the room $room"
done < <(grep -rnE '^#include "[^"]*/' src --include='*.h' --include='*.cpp' |
           sed -E 's/^([^:]+):([0-9]+):#include "([^"]+)".*/\1:\2:\3/')

while read -r hit; do complain "$hit: the toolkit outside src/ui"; done < <(
  grep -rnE '^#include *[<"]FL/' src --include='*.h' --include='*.cpp' | grep -v '^src/ui/')

[ $bad = 0 ] && echo "Every include follows the arrows."
exit $bad
