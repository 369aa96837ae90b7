#!/usr/bin/env bash
# Runs a command with an X display: the one in DISPLAY, or a private Xvfb
# started for the command and stopped after it (24 bits deep, or
# PICTURE_XVFB_DEPTH bits).
set -euo pipefail
if [[ -n "${DISPLAY:-}" ]]; then exec "$@"; fi
fifo=$(mktemp -u)
mkfifo "$fifo"
Xvfb -displayfd 3 -screen 0 "1024x768x${PICTURE_XVFB_DEPTH:-24}" -nolisten tcp -noreset 3>"$fifo" >/dev/null 2>&1 &
server=$!
trap 'kill $server 2>/dev/null; wait $server 2>/dev/null || true; rm -f "$fifo"' EXIT
read -r -t 20 number <"$fifo" || { echo "cannot start Xvfb" >&2; exit 1; }
export DISPLAY=":$number"
"$@"
