#!/usr/bin/env bash
# Installs the Debian packages that building the library, picturehost and the
# demo needs, and any PACKAGE... given, when any is missing. Runs as root on a
# fresh Debian 12 machine: tools/setup.sh [PACKAGE...]
set -euo pipefail
packages=(cmake g++ make pkg-config libgtk2.0-dev libffi-dev libpng-dev libjpeg-dev xvfb xauth fonts-dejavu-core "$@")
missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if ((${#missing[@]})); then
  echo "installing: ${missing[*]}"
  export DEBIAN_FRONTEND=noninteractive
  apt-get update -q
  apt-get install -y -q --no-install-recommends "${missing[@]}"
fi
