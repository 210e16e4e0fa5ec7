#!/usr/bin/env bash
# The arrows point one way: a file under src/ includes only headers of its own folder and of the
# folders that its CMakeLists.txt links; the toolkit is included by src/ui alone.
set -u
cd "$(dirname "$0")/../.." || exit 2
bad=0
complain() { echo "$1"; bad=1; }

# The folder below src/ that a path belongs to, by its library's name.
library_of() {
  case $1 in
    app/settings/*) echo settings ;;
    */*) echo "${1%%/*}" ;;
  esac
}

for lists in src/*/CMakeLists.txt src/app/settings/CMakeLists.txt; do
  folder=$(dirname "$lists")
  name=$(library_of "${folder#src/}/")
  allowed=$(grep -ohE 'tallowin_(library\([a-z ]+|[a-z]+)' "$lists" | sed 's/tallowin_library(//; s/tallowin_//')
  [[ " $(echo $allowed) " == *" engine "* ]] &&
    allowed+=" base files settings disk move ptable fat ops app"
  while IFS=: read -r file line include; do
    [ "$(library_of "${file#src/}")" = "$name" ] || continue
    wanted=$(library_of "$include")
    [ -n "$wanted" ] || continue
    [[ " $name $(echo $allowed) " == *" $wanted "* ]] ||
      complain "$file:$line: $name may not include $include"
  done < <(grep -rnE '^#include "' "$folder" --include='*.h' --include='*.cpp' |
             sed -E 's/^([^:]+):([0-9]+):#include "([^"]+)".*/\1:\2:\3/')
done

while read -r hit; do complain "$hit: the toolkit outside src/ui"; done < <(
  grep -rnE '^#include *[<"]FL/' src --include='*.h' --include='*.cpp' | grep -v '^src/ui/')

[ $bad = 0 ] && echo "Every include follows the arrows."
exit $bad
