#!/usr/bin/env bash
# Lines of source per top-level folder (C++, shell, Python, CMake), and the
# tests measured against the library and host code they test.
#   tools/line-counts.sh [REV]   count the files of git revision REV instead
#                                of the working tree
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
rev=${1:-}
if [[ -n $rev ]]; then
  files() { git ls-tree -r --name-only "$rev"; }
  count() { git show "$rev:$1" | wc -l; }
else
  files() { git ls-files; }
  count() { wc -l <"$1"; }
fi
declare -A lines
while read -r f; do
  case $f in
    *.cpp | *.h | *.sh | *.py | *.cmake | */CMakeLists.txt | CMakeLists.txt) ;;
    *) continue ;;
  esac
  dir=${f%%/*}
  [[ $dir == "$f" ]] && dir=.
  lines[$dir]=$(( ${lines[$dir]:-0} + $(count "$f") ))
done < <(files)
code=0 tests=0 other=0
for dir in $(printf '%s\n' "${!lines[@]}" | sort); do
  printf '%-10s %6d\n' "$dir" "${lines[$dir]}"
  case $dir in
    plugin | pixels | geometry | tone | filters | exchange | host | cli | demo) code=$((code + lines[$dir])) ;;
    tests) tests=${lines[$dir]} ;;
    *) other=$((other + lines[$dir])) ;;
  esac
done
printf 'library and host code %d, tests %d (%d%%), benchmarks, tools and build files %d\n' \
  "$code" "$tests" $((100 * tests / code)) "$other"
