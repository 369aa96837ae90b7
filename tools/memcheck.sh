#!/usr/bin/env bash
# The demo job under valgrind memcheck: tools/memcheck.sh PICTUREHOST OUT_DIR.
#
# Runs `picturehost demo` on a small sample with every memcheck error counted
# (invalid reads and writes, uses of uninitialised values, bad frees, and
# definite or possible leaks), with only the suppressions of
# tools/valgrind.supp. Exits non-zero when valgrind reports any error, naming
# those whose stack passes through libPicture.so, or when the demo fails.
set -uo pipefail
picturehost=$1 out=$2
root=$(cd "$(dirname "$0")/.." && pwd)
mkdir -p "$out"
log="$out/valgrind.log"
valgrind --tool=memcheck --error-exitcode=99 --num-callers=40 --track-origins=yes \
  --leak-check=full --show-leak-kinds=definite,possible --errors-for-leak-kinds=definite,possible \
  --suppressions="$root/tools/valgrind.supp" --log-file="$log" \
  "$picturehost" demo --on sample:64x48 --out-dir "$out/demo" >"$out/demo.log" 2>&1
rc=$?
summary=$(grep -h "ERROR SUMMARY" "$log" | tail -1)
echo "memcheck: ${summary#==*== } (log: $log)"
# Each error record is a block of lines; print those that reach the plug-in.
awk '/^==[0-9]+== [A-Z0-9]/ && !/HEAP SUMMARY|LEAK SUMMARY|ERROR SUMMARY|in use at exit|total heap usage/ {block=$0; next}
     /^==[0-9]+== +(at|by) / {block=block "\n" $0; next}
     /^==[0-9]+== *$/ { if (block ~ /libPicture\.so/) { print block; print ""; found=1 } block="" }
     END { exit found ? 1 : 0 }' "$log"
inplugin=$?
if ((inplugin)); then echo "memcheck: the errors above point into libPicture.so"; fi
if ((rc == 99)); then
  echo "memcheck: valgrind found errors"
  exit 1
elif ((rc != 0)); then
  echo "memcheck: the demo failed (exit $rc); see $out/demo.log"
  exit 1
fi
exit $inplugin
