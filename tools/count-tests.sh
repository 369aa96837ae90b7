#!/usr/bin/env bash
# Checks that the 64-bit and the 32-bit builds hold the same tests:
#   tools/count-tests.sh BUILD64 BUILD32
# The 64-bit list comes from CTest here, the 32-bit one from CTest inside
# the i386 root (tools/i386-root.sh), where its programs can run.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd -P)
[[ $# -eq 2 ]] || { echo "usage: $0 BUILD64 BUILD32" >&2; exit 2; }

names() { sed -n 's/^ *Test *#[0-9]*: //p' | sort; }
list64=$(ctest --test-dir "$1" -N | names)
list32=$("$root/tools/with-xvfb.sh" "$root/tools/i386-root.sh" run ctest --test-dir "$2" -N | names)
count64=$(grep -c . <<<"$list64" || true)
count32=$(grep -c . <<<"$list32" || true)
if [[ $list64 != "$list32" ]]; then
  echo "tests: the 64-bit build has $count64 tests, the 32-bit build $count32; they differ in:" >&2
  diff <(echo "$list64") <(echo "$list32") | grep '^[<>]' | sed 's/^</  64-bit only:/; s/^>/  32-bit only:/' >&2
  exit 1
fi
[[ $count64 -gt 0 ]] || { echo "tests: neither build lists any test" >&2; exit 1; }
echo "tests: the 64-bit and the 32-bit build both hold the same $count64 tests"
