#!/usr/bin/env bash
# The digest of every listed call's output on fixed inputs (`picturehost
# digest`, the calls of demo/calls.cpp), one line per call, so that two builds
# of the library (32-bit x86 and x86-64) can be compared bit for bit.
#
#   tools/digests.sh PICTUREHOST OUTFILE   run `PICTUREHOST digest` (with the
#                                          libPicture.so built beside it) and
#                                          write its lines to OUTFILE
#   tools/digests.sh --compare A B         compare two digest files line by
#                                          line; fails on any difference
#
# PICTUREHOST_RUNNER, when set, is a command that runs PICTUREHOST for the
# script (`tools/i386-root.sh run` for the 32-bit build, whose programs run
# only inside the i386 root); picturehost keeps its files under /tmp, which
# the root shares. Lines are
#   <sha256>  <exit status>  <command line>
# Runs under a private Xvfb when no display is set.
set -euo pipefail

CHECKOUT=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd -P)

compare() {
  local a=$1 b=$2
  [[ -s $a ]] || { echo "digests: $a is missing or empty" >&2; return 1; }
  [[ -s $b ]] || { echo "digests: $b is missing or empty" >&2; return 1; }
  local count differ
  count=$(wc -l <"$a")
  if [[ $count -ne $(wc -l <"$b") ]]; then
    echo "digests: $a has $count lines, $b has $(wc -l <"$b")" >&2
    diff "$a" "$b" >&2 || true
    return 1
  fi
  differ=$(paste -d '\n' "$a" "$b" | awk 'NR % 2 { left = $0; next } $0 != left { n++; print "  " left; print "  " $0 } END { exit 0 }')
  if [[ -n $differ ]]; then
    echo "digests: $a and $b differ:" >&2
    printf '%s\n' "$differ" >&2
    return 1
  fi
  echo "digests: all $count calls agree between $a and $b"
}

if [[ ${1:-} == --compare ]]; then
  [[ $# -eq 3 ]] || { echo "usage: $0 --compare A B" >&2; exit 2; }
  compare "$2" "$3"
  exit
fi
[[ $# -eq 2 ]] || { echo "usage: $0 PICTUREHOST OUTFILE | --compare A B" >&2; exit 2; }
if [[ -z ${DISPLAY:-} ]]; then exec "$CHECKOUT/tools/with-xvfb.sh" "$0" "$@"; fi

PH=$(cd "$(dirname "$1")" && pwd -P)/$(basename "$1")
read -r -a RUNNER <<<"${PICTUREHOST_RUNNER:-}"
OUTFILE=$2
[[ -x $PH ]] || { echo "digests: $PH is not built" >&2; exit 1; }
mkdir -p "$(dirname "$OUTFILE")"
if ! "${RUNNER[@]}" "$PH" digest >"$OUTFILE.part"; then
  echo "digests: $PH digest failed" >&2
  rm -f "$OUTFILE.part"
  exit 1
fi
mv "$OUTFILE.part" "$OUTFILE"
echo "digests: $(wc -l <"$OUTFILE") calls digested into $OUTFILE"
