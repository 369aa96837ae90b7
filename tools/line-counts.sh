#!/usr/bin/env bash
# Lines of source per top-level folder (C++, shell, Python, CMake), counting
# neither blank lines nor comment lines, and the tests against everything
# else: the library, the host, the command line, the demo, the benchmarks
# and the tools.
#   tools/line-counts.sh [REV]   count the files of git revision REV instead
#                                of the working tree
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
rev=${1:-}
show() { if [[ -n $rev ]]; then git show "$rev:$1"; else cat "$1"; fi; }
# Lines that are neither blank nor only a comment: // and /* */ in C++, # in
# the scripts and CMake files (but #! and C++'s #include are code).
count() {
  case $1 in
    *.cpp | *.h) show "$1" | awk '
      inblock { if (index($0, "*/")) inblock = 0; next }
      /^[ \t]*$/ || /^[ \t]*\/\// { next }
      /^[ \t]*\/\*/ { if (!index($0, "*/")) inblock = 1; next }
      { n++ } END { print n + 0 }' ;;
    *) show "$1" | awk '/^[ \t]*$/ || (/^[ \t]*#/ && !/^#!/) { next } { n++ } END { print n + 0 }' ;;
  esac
}
declare -A lines
while read -r f; do
  case $f in
    *.cpp | *.h | *.sh | *.py | *.cmake | */CMakeLists.txt | CMakeLists.txt | Makefile) ;;
    *) continue ;;
  esac
  dir=${f%%/*}
  [[ $dir == "$f" ]] && dir=.
  lines[$dir]=$((${lines[$dir]:-0} + $(count "$f")))
done < <(if [[ -n $rev ]]; then git ls-tree -r --name-only "$rev"; else git ls-files; fi)
tests=0 rest=0
for dir in $(printf '%s\n' "${!lines[@]}" | sort); do
  printf '%-10s %6d\n' "$dir" "${lines[$dir]}"
  if [[ $dir == tests ]]; then tests=${lines[$dir]}; else rest=$((rest + lines[$dir])); fi
done
printf 'tests %d lines against %d of everything else: %d%%\n' "$tests" "$rest" $((100 * tests / rest))
