#!/usr/bin/env bash
# Opens the demo's page in headless Chromium, saves a screenshot of it, and
# fails when an image on the page is missing: a file named by an <img> that
# is not on disk, or an image the browser could not load (the page counts
# those on its body element once loaded).
#   tools/check-page.sh [out/demo/index.html [out/demo-page.png]]
set -euo pipefail
page=${1:-out/demo/index.html}
shot=${2:-out/demo-page.png}
[ -f "$page" ] || { echo "no page $page (run make demo first)" >&2; exit 1; }
browser=$(command -v chromium || command -v chromium-browser || true)
if [ -z "$browser" ]; then
  echo "installing chromium" >&2
  export DEBIAN_FRONTEND=noninteractive
  apt-get update -q >/dev/null && apt-get install -y -q --no-install-recommends chromium >/dev/null
  browser=$(command -v chromium)
fi
dir=$(cd "$(dirname "$page")" && pwd)
url="file://$dir/$(basename "$page")"
profile=$(mktemp -d)
trap 'rm -rf "$profile"' EXIT
flags=(--headless --no-sandbox --disable-gpu --disable-background-networking --disable-component-update
       --no-first-run --hide-scrollbars --user-data-dir="$profile")

status=0
files=0
while read -r src; do
  files=$((files + 1))
  if [ ! -f "$dir/$src" ]; then
    echo "missing file: $src" >&2
    status=1
  fi
done < <(grep -o '<img src="[^"]*"' "$page" | sed 's/^<img src="//; s/"$//')

"$browser" "${flags[@]}" --window-size=1280,2400 --screenshot="$(realpath -m "$shot")" "$url" >/dev/null 2>&1
dom=$("$browser" "${flags[@]}" --virtual-time-budget=10000 --dump-dom "$url" 2>/dev/null)
loaded=$(grep -o 'data-missing-images="[^"]*"' <<<"$dom" | head -n1 | sed 's/^[^"]*"//; s/"$//')
case "$loaded" in
  0) ;;
  '' | unchecked) echo "the page's image check did not run" >&2; status=1 ;;
  *) echo "$loaded image(s) did not load:" >&2
     grep -o '<img[^>]*class="missing"[^>]*>' <<<"$dom" >&2 || true
     status=1 ;;
esac
echo "$page: $files images, ${loaded:-?} not loaded by $("$browser" --version 2>/dev/null | head -n1); screenshot $shot"
exit $status
