#!/usr/bin/env bash
# Installs the Debian packages the build, the tests and the demo need, when
# any is missing. Runs as root on a fresh Debian 12 machine.
set -euo pipefail
packages=(cmake g++ make pkg-config libgtk2.0-dev libffi-dev libgtest-dev libbenchmark-dev
          xvfb xauth fonts-dejavu-core binutils
          clang libclang-rt-14-dev valgrind  # make fuzz (libFuzzer, sanitizers), make memcheck
          "$@")
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
