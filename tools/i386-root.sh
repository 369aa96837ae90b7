#!/usr/bin/env bash
# A Debian bookworm i386 root in which the 32-bit library, the emulated host
# and the tests are built and run. The i386 packages come from that root's own
# apt, so they never have to match the versions of the machine's amd64 ones.
#
#   tools/i386-root.sh setup          create the root, or check that it is ready
#   tools/i386-root.sh run CMD...     run CMD inside the root, in the current
#                                     directory when it lies in the checkout
#   tools/i386-root.sh build [TARGET...]
#                                     configure and build build32/ in the checkout
#   tools/i386-root.sh test [CTEST-ARG...]
#                                     run ctest in build32/
#
# The checkout is shared with the root through a bind mount at its own path,
# together with /proc, /sys, /dev, /dev/pts, /dev/shm and /tmp (the tests'
# Xvfb puts its socket and lock files in /tmp). The mounts are made in a
# private mount namespace when unshare is available, so they disappear with
# the command; otherwise they are unmounted when the command ends.
#
# Environment: PICTURE_I386_ROOT (default /var/cache/picture-i386-root),
# PICTURE_I386_ARCHIVE (default: the Debian archive in the machine's apt
# sources), JOBS (parallel build jobs, default 2).
set -euo pipefail

SELF=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd -P)/$(basename "${BASH_SOURCE[0]}")
CHECKOUT=$(cd "$(dirname "$SELF")/.." && pwd -P)
ROOT=${PICTURE_I386_ROOT:-/var/cache/picture-i386-root}
SUITE=bookworm
PACKAGES=(g++ make cmake pkg-config libgtk2.0-dev libffi-dev libgtest-dev
          libbenchmark-dev xvfb xauth file binutils)
STAMP=$ROOT/.picture-root-ready
BUILD_DIR=$CHECKOUT/build32

log() { printf 'i386-root: %s\n' "$*" >&2; }
die() { log "$*"; exit 1; }

require_root_user() {
  [[ $(id -u) -eq 0 ]] || die "must run as root (debootstrap, mount and chroot need it)"
}

# The first deb archive of the machine's apt sources that serves $SUITE; when
# none names it, the first one that is not a security archive (the same
# archive carries every release).
find_archive() {
  if [[ -n ${PICTURE_I386_ARCHIVE:-} ]]; then
    printf '%s\n' "$PICTURE_I386_ARCHIVE"
    return
  fi
  local candidates
  candidates=$(
    {
      for f in /etc/apt/sources.list.d/*.sources; do
        [[ -f $f ]] || continue
        cat "$f"; echo
      done | awk -v want="$SUITE" '
        function flush(   n, s, u, i) {
          if (enabled != "no" && types ~ /(^|[ \t])deb([ \t]|$)/ && uris != "") {
            split(uris, u, /[ \t]+/)
            n = split(suites, s, /[ \t]+/)
            for (i = 1; i <= n; i++) if (s[i] == want) { print 0, u[1]; break }
            if (uris !~ /security/) print 1, u[1]
          }
          types = uris = suites = enabled = ""
        }
        /^[ \t]*#/ { next }
        /^[ \t]*$/ { flush(); next }
        /^Types:/   { sub(/^Types:[ \t]*/, "");   types = $0;   next }
        /^URIs:/    { sub(/^URIs:[ \t]*/, "");    uris = $0;    next }
        /^Suites:/  { sub(/^Suites:[ \t]*/, "");  suites = $0;  next }
        /^Enabled:/ { sub(/^Enabled:[ \t]*/, ""); enabled = $0; next }
        END { flush() }'
      cat /etc/apt/sources.list /etc/apt/sources.list.d/*.list 2>/dev/null |
        awk -v want="$SUITE" '
          $1 != "deb" { next }
          { sub(/\[[^]]*\][ \t]*/, "") }
          $3 == want { print 0, $2 }
          $2 !~ /security/ { print 1, $2 }'
    } | sort -s -n -k1,1
  )
  local archive
  archive=$(printf '%s\n' "$candidates" | awk 'NF == 2 { print $2; exit }')
  [[ -n $archive ]] || die "no Debian archive found in the apt sources; set PICTURE_I386_ARCHIVE"
  printf '%s\n' "${archive%/}"
}

# Refuses to go on while anything is mounted below $1, so that removing a
# half-made root can never reach into the checkout or the machine's /dev.
assert_nothing_mounted_below() {
  local dir
  dir=$(readlink -f "$1")
  if awk -v d="$dir" '$2 == d || index($2, d "/") == 1 { found = 1 } END { exit !found }' /proc/mounts; then
    die "something is still mounted below $dir; unmount it first"
  fi
}

remove_tree() {
  [[ -e $1 ]] || return 0
  assert_nothing_mounted_below "$1"
  rm -rf --one-file-system -- "$1"
}

root_is_ready() {
  [[ -f $STAMP ]] || return 1
  [[ $(cat "$STAMP") == "${PACKAGES[*]}" ]] || return 1
  local states
  states=$(chroot "$ROOT" /usr/bin/dpkg-query -W -f '${db:Status-Abbrev}\n' "${PACKAGES[@]}" 2>/dev/null) ||
    return 1
  [[ -z $(grep -v '^ii' <<<"$states") ]] || return 1
  chroot "$ROOT" /usr/bin/g++ --version >/dev/null 2>&1
}

ensure_debootstrap() {
  command -v debootstrap >/dev/null && return
  log "installing debootstrap on the machine"
  export DEBIAN_FRONTEND=noninteractive
  apt-get install -y --no-install-recommends debootstrap >/dev/null 2>&1 || {
    apt-get update -qq
    apt-get install -y --no-install-recommends debootstrap
  }
}

# Settings of the machine's apt that the root's apt needs as well: the archive
# may be a dated snapshot (so no Valid-Until check) and may be reached
# through a proxy.
copy_apt_settings() {
  command -v apt-config >/dev/null || return 0
  apt-config dump 2>/dev/null |
    grep -E '^Acquire::(Check-Valid-Until|Check-Date|https?::Proxy|https?::proxy) ' \
      >"$ROOT/etc/apt/apt.conf.d/01picture-machine" || true
}

setup() {
  require_root_user
  if root_is_ready; then
    log "root ready at $ROOT"
    return
  fi
  local start=$SECONDS

  if [[ ! -f $ROOT/.picture-debootstrap-done ]]; then
    ensure_debootstrap
    local archive partial=$ROOT.partial
    archive=$(find_archive)
    # A root is made under another name and renamed when complete, so a
    # directory at $ROOT without the mark is not one of ours: leave it be.
    [[ ! -e $ROOT ]] || die "$ROOT exists but was not made by this script; remove it or set PICTURE_I386_ROOT"
    remove_tree "$partial"
    mkdir -p "$(dirname "$ROOT")"
    log "debootstrap $SUITE i386 from $archive"
    if ! debootstrap --arch=i386 --variant=minbase "$SUITE" "$partial" "$archive" \
          >"$partial.log" 2>&1; then
      tail -n 30 "$partial.log" >&2
      die "debootstrap failed (full log: $partial.log)"
    fi
    rm -f "$partial.log"
    # The root's apt reads only this file.
    printf 'deb %s %s main\n' "$archive" "$SUITE" >"$partial/etc/apt/sources.list"
    touch "$partial/.picture-debootstrap-done"
    mv "$partial" "$ROOT"
    log "debootstrap done in $((SECONDS - start)) s"
  fi

  # Packages must not start services inside the root.
  printf '#!/bin/sh\nexit 101\n' >"$ROOT/usr/sbin/policy-rc.d"
  chmod 755 "$ROOT/usr/sbin/policy-rc.d"
  cp -L /etc/resolv.conf "$ROOT/etc/resolv.conf" 2>/dev/null || true
  copy_apt_settings

  local step=$SECONDS
  log "installing ${PACKAGES[*]}"
  rm -f "$STAMP"
  enter_root / sh -c '
    export DEBIAN_FRONTEND=noninteractive
    apt-get update -qq || exit 1
    log=/tmp/picture-i386-apt.$$.log
    if ! apt-get install -y -qq --no-install-recommends "$@" >"$log" 2>&1; then
      tail -n 40 "$log" >&2; rm -f "$log"; exit 1
    fi
    rm -f "$log"
    apt-get clean' sh "${PACKAGES[@]}" || die "installing packages in the root failed"
  printf '%s\n' "${PACKAGES[*]}" >"$STAMP"
  log "packages installed in $((SECONDS - step)) s; setup took $((SECONDS - start)) s"
}

ensure_ready() {
  require_root_user
  root_is_ready || setup
}

# enter_root DIR CMD...: runs CMD inside the root in DIR, with the mounts made
# in a private mount namespace when possible.
enter_root() {
  if command -v unshare >/dev/null && unshare --mount --propagation private true 2>/dev/null; then
    PICTURE_I386_PRIVATE_MOUNTS=1 unshare --mount --propagation private -- "$SELF" __enter "$@"
  else
    "$SELF" __enter "$@"
  fi
}

MOUNTED=()
unmount_all() {
  local i
  for ((i = ${#MOUNTED[@]} - 1; i >= 0; i--)); do
    umount "${MOUNTED[i]}" 2>/dev/null || umount -l "${MOUNTED[i]}" 2>/dev/null || true
  done
  MOUNTED=()
}

bind() {  # bind SOURCE TARGET-INSIDE-ROOT
  mkdir -p "$ROOT$2"
  mount --bind "$1" "$ROOT$2"
  MOUNTED+=("$ROOT$2")
}

inside() {  # the body of enter_root, run by the script itself
  local dir=$1
  shift
  [[ $# -gt 0 ]] || die "no command given"
  # In a private mount namespace the mounts vanish with its last process, so
  # a process the command left running (an Xvfb shutting down) still sees
  # the shared /tmp while it removes its lock files. Without one, the
  # mounts are undone here.
  local private=${PICTURE_I386_PRIVATE_MOUNTS:-0}
  unset PICTURE_I386_PRIVATE_MOUNTS
  if [[ $private != 1 ]]; then
    trap unmount_all EXIT
    trap 'exit 130' INT TERM
  fi

  mount -t proc proc "$ROOT/proc"
  MOUNTED+=("$ROOT/proc")
  bind /sys /sys
  bind /dev /dev
  [[ -d /dev/pts ]] && bind /dev/pts /dev/pts
  mountpoint -q /dev/shm 2>/dev/null && bind /dev/shm /dev/shm
  bind /tmp /tmp
  bind "$CHECKOUT" "$CHECKOUT"

  local keep=() name
  for name in TERM CI CTEST_OUTPUT_ON_FAILURE CTEST_PARALLEL_LEVEL \
              CMAKE_BUILD_PARALLEL_LEVEL VERBOSE; do
    [[ -n ${!name:-} ]] && keep+=("$name=${!name}")
  done
  for name in $(compgen -e | grep -E '^(GTEST|PICTURE)_' || true); do
    keep+=("$name=${!name}")
  done

  # setarch makes uname report i686 inside, as on a 32-bit machine.
  local personality=()
  command -v setarch >/dev/null && setarch i686 true 2>/dev/null && personality=(setarch i686)

  local status=0
  "${personality[@]}" chroot "$ROOT" /usr/bin/env -i \
    PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin \
    HOME=/root LC_ALL=C.UTF-8 "${keep[@]}" \
    /bin/sh -c 'cd "$1" && shift && exec "$@"' sh "$dir" "$@" || status=$?
  [[ $private == 1 ]] || unmount_all
  return "$status"
}

# The directory to run in: the current one when it lies inside the checkout.
run_dir() {
  local here
  here=$(pwd -P)
  if [[ $here == "$CHECKOUT" || $here == "$CHECKOUT"/* ]]; then
    printf '%s\n' "$here"
  else
    printf '%s\n' "$CHECKOUT"
  fi
}

build() {
  ensure_ready
  local jobs=${JOBS:-2} targets=()
  local t
  for t in "$@"; do targets+=(--target "$t"); done
  enter_root "$CHECKOUT" sh -c '
    build=$1 jobs=$2; shift 2
    cmake -S . -B "$build" -DPICTURE_SANITIZE=OFF -DCMAKE_BUILD_TYPE=RelWithDebInfo -DPICTURE_TESTS=ON &&
    cmake --build "$build" -j "$jobs" "$@"' sh "$BUILD_DIR" "$jobs" "${targets[@]}"
}

run_tests() {
  ensure_ready
  [[ -f $BUILD_DIR/CTestTestfile.cmake ]] || die "$BUILD_DIR is not built; run: $0 build"
  enter_root "$CHECKOUT" ctest --test-dir "$BUILD_DIR" --output-on-failure "$@"
}

usage() {
  sed -n '2,/^set -euo/p' "$SELF" | sed '$d; s/^# \{0,1\}//' >&2
  exit 2
}

main() {
  local command=${1:-}
  [[ $# -gt 0 ]] && shift
  case $command in
    setup) setup ;;
    run)
      [[ $# -gt 0 ]] || usage
      ensure_ready
      enter_root "$(run_dir)" "$@"
      ;;
    build) build "$@" ;;
    test) run_tests "$@" ;;
    __enter) inside "$@" ;;
    *) usage ;;
  esac
}

main "$@"
