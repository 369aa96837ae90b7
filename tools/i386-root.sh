#!/usr/bin/env bash
# A Debian bookworm i386 root in which the 32-bit library, the emulated host
# and the tests run. The i386 packages come from that root's own apt, so they
# never have to match the versions of the machine's amd64 ones.
#
# Some x86-64 machines run 32-bit x86 programs, some refuse them ("Exec
# format error"). A probe that executes a tiny 32-bit program decides the
# route:
#   native     the kernel runs 32-bit programs: the root is made and used as
#              it is, and build32/ is compiled inside it by its own g++.
#   emulated   it does not: Debian's user-mode emulator (qemu-user-static) is
#              registered with binfmt_misc for i386 programs, so the root and
#              everything in it work as before, only slower; build32/ is
#              compiled on this machine by Debian's i686 cross compilers with
#              the root as system root (tools/i386-cross.cmake), which is many
#              times faster than compiling inside the emulator.
# PICTURE_I386_EMULATE=1 takes the emulated route on any machine; =0 the
# native one (for a machine that runs 32-bit programs through an emulator
# registered by someone else).
#
#   tools/i386-root.sh route [--check]
#                                     print the route and why; --check also
#                                     checks that the forcing switch is obeyed
#   tools/i386-root.sh setup          create the root, or check that it is ready
#   tools/i386-root.sh run CMD...     run CMD inside the root, in the current
#                                     directory when it lies in the checkout
#                                     or in /tmp
#   tools/i386-root.sh build [TARGET...]
#                                     configure and build build32/ in the checkout
#   tools/i386-root.sh test [CTEST-ARG...]
#                                     run ctest in build32/
#   tools/i386-root.sh emulator-off   remove this script's binfmt_misc entry
#
# The checkout is shared with the root through a bind mount at its own path,
# together with /proc, /sys, /dev, /dev/pts, /dev/shm and /tmp (the X server's
# socket and lock files are in /tmp). The mounts are made in a private mount
# namespace when unshare is available, so they disappear with the command;
# otherwise they are unmounted when the command ends. DISPLAY is passed in,
# so an X server started outside serves the programs inside.
#
# A failed or interrupted setup is taken up again by the next one: a
# half-made root is removed, mounts left behind are undone, dpkg is told to
# finish its work, and missing packages are installed. Every step that fails
# names itself and its log.
#
# Environment: PICTURE_I386_ROOT (default /var/cache/picture-i386-root),
# PICTURE_I386_ARCHIVE (default: the Debian archive in the machine's apt
# sources), PICTURE_I386_EMULATE (1: always the emulated route, 0: always
# the native one), JOBS (parallel build jobs, default 2).
set -euo pipefail

SELF=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd -P)/$(basename "${BASH_SOURCE[0]}")
CHECKOUT=$(cd "$(dirname "$SELF")/.." && pwd -P)
ROOT=${PICTURE_I386_ROOT:-/var/cache/picture-i386-root}
SUITE=bookworm
# What the programs need at run time and the builds at compile time (ctest,
# nm for the symbol test); the native route also compiles inside the root.
# The X server is always the machine's own (tools/with-xvfb.sh outside).
COMMON_PACKAGES=(cmake libgtk2.0-dev libffi-dev libpng-dev libjpeg-dev libgtest-dev file binutils)
NATIVE_PACKAGES=(g++ make pkg-config)
STAMP=$ROOT/.picture-root-ready
BUILD_DIR=$CHECKOUT/build32
LOGS=$ROOT-logs
BINFMT=/proc/sys/fs/binfmt_misc
BINFMT_NAME=picture-i386
EMULATOR=/usr/bin/qemu-i386-static
# The i386 ELF header as binfmt_misc matches it: 32-bit, little-endian,
# version 1, an executable or shared object, machine 3 (i386).
I386_MAGIC='\x7fELF\x01\x01\x01\x00\x00\x00\x00\x00\x00\x00\x00\x00\x02\x00\x03\x00'
I386_MASK='\xff\xff\xff\xff\xff\xfe\xfe\x00\xff\xff\xff\xff\xff\xff\xff\xff\xfe\xff\xff\xff'

log() { printf 'i386-root: %s\n' "$*" >&2; }
die() { log "$*"; exit 1; }

# step NAME CMD...: runs one setup step with its output in $LOGS/NAME.log;
# on failure shows the end of the log and names the step and the log.
step() {
  local name=$1 start=$SECONDS status=0
  shift
  mkdir -p "$LOGS"
  "$@" >"$LOGS/$name.log" 2>&1 || status=$?
  if ((status != 0)); then
    tail -n 30 "$LOGS/$name.log" | sed 's/^/    /' >&2
    die "step '$name' failed (exit $status) after $((SECONDS - start)) s; full log: $LOGS/$name.log"
  fi
  log "$name: done in $((SECONDS - start)) s"
}

# host_packages PACKAGE...: installs what is missing of PACKAGE... on the
# machine itself.
host_packages() {
  local missing=() p
  for p in "$@"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
  done
  ((${#missing[@]})) || return 0
  log "installing on the machine: ${missing[*]}"
  step host-packages sh -c '
    export DEBIAN_FRONTEND=noninteractive
    apt-get install -y --no-install-recommends "$@" || {
      apt-get update && apt-get install -y --no-install-recommends "$@"; }' sh "${missing[@]}"
}

require_root_user() {
  [[ $(id -u) -eq 0 ]] || die "must run as root (debootstrap, mount and chroot need it)"
}

# A complete 32-bit x86 program that does nothing but exit with status 0:
# an ELF header, one loadable segment, and the code
#   mov eax, 1 ; mov ebx, 0 ; int 0x80       (the exit system call)
PROBE_ELF='f0VMRgEBAQAAAAAAAAAAAAIAAwABAAAAVIAECDQAAAAAAAAAAAAAADQAIAABAAAAAAAAAAEAAAAAAAAAAIAECACABAhgAAAAYAAAAAUAAAAAEAAAuAEAAAC7AAAAAM2A'

# The enabled binfmt_misc entries other than ours that take i386 programs
# (their magic ends in machine number 3).
other_i386_entries() {
  local entry magic
  [[ -f $BINFMT/status ]] || return 0
  for entry in "$BINFMT"/*; do
    case ${entry##*/} in status | register | "$BINFMT_NAME") continue ;; esac
    grep -qx enabled "$entry" 2>/dev/null || continue
    magic=$(sed -n 's/^magic //p' "$entry")
    [[ $magic == 7f454c460101* && ${magic:36:4} == 0300 ]] && printf '%s\n' "${entry##*/}"
  done
  return 0
}

# probe: executes the 32-bit program with our emulator entry switched off
# for the moment; prints what happened. Exit 0 when the kernel ran it.
probe() {
  local file status=0 ours_on=0 out
  file=$(mktemp "${TMPDIR:-/tmp}/picture-probe32.XXXXXX")
  base64 -d <<<"$PROBE_ELF" >"$file"
  chmod 755 "$file"
  if [[ -f $BINFMT/$BINFMT_NAME ]] && grep -qx enabled "$BINFMT/$BINFMT_NAME"; then
    ours_on=1
    echo 0 >"$BINFMT/$BINFMT_NAME"
  fi
  out=$("$file" 2>&1) || status=$?
  ((ours_on)) && echo 1 >"$BINFMT/$BINFMT_NAME"
  rm -f "$file"
  if ((status == 0)); then
    local others
    others=$(other_i386_entries | paste -sd ' ')
    if [[ -n $others ]]; then
      echo "a 32-bit program ran, but through the binfmt_misc entries: $others"
      return 1
    fi
    echo "a 32-bit program ran natively"
    return 0
  fi
  echo "a 32-bit program did not run (exit $status${out:+: ${out##*: }})"
  return 1
}

# The probe's finding, kept for the rest of the machine's boot in
# $PROBE_CACHE (the machine cannot change without a new boot), so that our
# emulator entry is switched off for a moment only on the first use.
PROBE_CACHE=$(dirname "$ROOT")/picture-i386-probe
cached_probe() {
  local boot status=0 found
  boot=$(cat /proc/sys/kernel/random/boot_id 2>/dev/null || echo unknown)
  if [[ -f $PROBE_CACHE && $(sed -n 1p "$PROBE_CACHE") == "$boot" ]]; then
    sed -n 3p "$PROBE_CACHE"
    return "$(sed -n 2p "$PROBE_CACHE")"
  fi
  found=$(probe) || status=$?
  mkdir -p "$(dirname "$PROBE_CACHE")"
  printf '%s\n%s\n%s\n' "$boot" "$status" "$found" >"$PROBE_CACHE"
  printf '%s\n' "$found"
  return "$status"
}

# ROUTE and ROUTE_WHY, decided once per run of the script.
decide_route() {
  [[ -z ${ROUTE:-} ]] || return 0
  local found status=0
  found=$(cached_probe) || status=$?
  if [[ ${PICTURE_I386_EMULATE:-} == 1 ]]; then
    ROUTE=emulated ROUTE_WHY="forced by PICTURE_I386_EMULATE=1; the probe: $found"
  elif [[ ${PICTURE_I386_EMULATE:-} == 0 ]]; then
    ROUTE=native ROUTE_WHY="forced by PICTURE_I386_EMULATE=0; the probe: $found"
  elif ((status == 0)); then
    ROUTE=native ROUTE_WHY=$found
  else
    ROUTE=emulated ROUTE_WHY=$found
  fi
  PACKAGES=("${COMMON_PACKAGES[@]}")
  [[ $ROUTE == emulated ]] || PACKAGES+=("${NATIVE_PACKAGES[@]}")
}

# The emulator, registered for i386 programs with the F flag: the kernel
# opens the interpreter when the entry is made, so it also serves programs
# inside the root, where /usr/bin/qemu-i386-static does not exist.
emulator_on() {
  host_packages qemu-user-static
  [[ -x $EMULATOR ]] || die "$EMULATOR is missing after installing qemu-user-static"
  if [[ ! -f $BINFMT/register ]]; then
    mount -t binfmt_misc binfmt_misc "$BINFMT" ||
      die "cannot mount binfmt_misc on $BINFMT, which the emulated route needs"
  fi
  if [[ -f $BINFMT/$BINFMT_NAME ]]; then
    if grep -qx "interpreter $EMULATOR" "$BINFMT/$BINFMT_NAME" && grep -q '^flags:.*F' "$BINFMT/$BINFMT_NAME"; then
      grep -qx enabled "$BINFMT/$BINFMT_NAME" || echo 1 >"$BINFMT/$BINFMT_NAME"
      return 0
    fi
    echo -1 >"$BINFMT/$BINFMT_NAME"
  fi
  printf ':%s:M::%b:%b:%s:F' "$BINFMT_NAME" "$I386_MAGIC" "$I386_MASK" "$EMULATOR" >"$BINFMT/register" ||
    die "cannot register $EMULATOR with binfmt_misc"
  log "registered $EMULATOR for i386 programs ($BINFMT/$BINFMT_NAME)"
}

# On the native route our entry must not stand between the kernel and the
# programs, or the native route would be emulated after all.
emulator_off() {
  [[ -f $BINFMT/$BINFMT_NAME ]] || return 0
  echo -1 >"$BINFMT/$BINFMT_NAME"
  log "removed the binfmt_misc entry $BINFMT_NAME"
}

ensure_route() {
  decide_route
  if [[ $ROUTE == emulated ]]; then emulator_on; else emulator_off; fi
}

# route --check: prints the decision; probes afresh and checks that the
# decision agrees with what the probe finds now, and that the forcing
# switch gives the emulated route.
route_command() {
  require_root_user
  decide_route
  echo "32-bit route: $ROUTE ($ROUTE_WHY)"
  [[ ${1:-} == --check ]] || return 0
  local forced probed status=0
  forced=$(PICTURE_I386_EMULATE=1 "$SELF" route)
  [[ $forced == "32-bit route: emulated (forced by PICTURE_I386_EMULATE=1;"* ]] ||
    die "check failed: PICTURE_I386_EMULATE=1 gave: $forced"
  probed=$(probe) || status=$?
  [[ -n ${PICTURE_I386_EMULATE:-} ]] && status=forced
  if [[ $status == 1 && $ROUTE == native ]]; then
    die "check failed: the native route was chosen although $probed"
  fi
  if [[ $status == 0 && $ROUTE == emulated ]]; then
    die "check failed: the emulated route was chosen although $probed"
  fi
  echo "32-bit route check: the probe's decision and the forcing switch are obeyed"
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

# The mount points at or below $1, deepest first.
mounts_below() {
  local dir
  dir=$(readlink -f "$1")
  awk -v d="$dir" '$2 == d || index($2, d "/") == 1 { print $2 }' /proc/mounts | sort -r
}

# Mounts below $1 that an interrupted run left behind (only possible where
# no private mount namespace could be had), undone deepest first.
unmount_leftovers() {
  local mounts
  mounts=$(mounts_below "$1")
  [[ -n $mounts ]] || return 0
  log "undoing mounts left below $1"
  while read -r m; do umount "$m" 2>/dev/null || umount -l "$m"; done <<<"$mounts"
}

# Refuses to go on while anything is still mounted below $1, so that
# removing a half-made root can never reach into the checkout or the
# machine's /dev.
remove_tree() {
  [[ -e $1 ]] || return 0
  unmount_leftovers "$1"
  [[ -z $(mounts_below "$1") ]] || die "something is still mounted below $1; unmount it first"
  rm -rf --one-file-system -- "$1"
}

# The root runs its own programs (through the emulator on that route), and
# its packages are the ones asked for, all installed.
root_runs() { chroot "$ROOT" /bin/true 2>/dev/null; }

root_is_ready() {
  [[ -f $STAMP ]] || return 1
  [[ $(cat "$STAMP") == "${PACKAGES[*]}" ]] || return 1
  root_runs || return 1
  local states
  states=$(chroot "$ROOT" /usr/bin/dpkg-query -W -f '${db:Status-Abbrev}\n' "${PACKAGES[@]}" 2>/dev/null) ||
    return 1
  [[ -z $(grep -v '^ii' <<<"$states") ]] || return 1
  [[ $ROUTE == emulated ]] || chroot "$ROOT" /usr/bin/g++ --version >/dev/null 2>&1
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

make_root() {
  host_packages debootstrap
  local archive partial=$ROOT.partial
  archive=$(find_archive)
  # A root is made under another name and renamed when complete, so a
  # half-made one is never mistaken for a root.
  remove_tree "$partial"
  rm -f "$partial.log"  # the log of earlier versions of this script
  mkdir -p "$(dirname "$ROOT")"
  log "debootstrap $SUITE i386 from $archive ($ROUTE route)"
  # The first stage downloads and unpacks on this machine; the second runs
  # the root's own dpkg, through the emulator on that route, and so is told
  # first to leave out documentation and to skip syncing every file (a root
  # interrupted half-way is made again anyway).
  step debootstrap-first debootstrap --foreign --arch=i386 --variant=minbase "$SUITE" "$partial" "$archive"
  mkdir -p "$partial/etc/dpkg/dpkg.cfg.d"
  printf '%s\n' force-unsafe-io 'path-exclude=/usr/share/doc/*' 'path-exclude=/usr/share/man/*' \
    'path-exclude=/usr/share/info/*' 'path-exclude=/usr/share/locale/*' 'path-include=/usr/share/locale/locale.alias' \
    >"$partial/etc/dpkg/dpkg.cfg.d/01picture"
  step debootstrap-second chroot "$partial" /debootstrap/debootstrap --second-stage
  # The root's apt reads only this file.
  printf 'deb %s %s main\n' "$archive" "$SUITE" >"$partial/etc/apt/sources.list"
  touch "$partial/.picture-debootstrap-done"
  mv "$partial" "$ROOT"
}

setup() {
  require_root_user
  ensure_route
  if root_is_ready; then
    log "root ready at $ROOT"
    return
  fi
  local start=$SECONDS

  if [[ -e $ROOT && ! -f $ROOT/.picture-debootstrap-done ]]; then
    # Only this script makes directories with that mark, and it renames a
    # root into place only once it has it: anything else is not ours.
    die "$ROOT exists but was not made by this script; remove it or set PICTURE_I386_ROOT"
  fi
  if [[ -e $ROOT ]] && ! root_runs; then
    # A root whose programs cannot run even now (a broken copy, or one made
    # half-way before the emulator was registered) is made again.
    log "the root at $ROOT cannot run its programs; making it again"
    remove_tree "$ROOT"
  fi
  [[ -e $ROOT ]] || make_root
  unmount_leftovers "$ROOT"

  # Packages must not start services inside the root.
  printf '#!/bin/sh\nexit 101\n' >"$ROOT/usr/sbin/policy-rc.d"
  chmod 755 "$ROOT/usr/sbin/policy-rc.d"
  cp -L /etc/resolv.conf "$ROOT/etc/resolv.conf" 2>/dev/null || true
  copy_apt_settings

  log "installing ${PACKAGES[*]}"
  rm -f "$STAMP"
  # dpkg first finishes whatever an interrupted run left half-configured.
  step packages enter_root / sh -c '
    export DEBIAN_FRONTEND=noninteractive
    dpkg --configure -a &&
    apt-get update -qq &&
    apt-get install -y -qq --no-install-recommends -o Dpkg::Options::=--force-confold "$@" &&
    apt-get clean' sh "${PACKAGES[@]}"
  printf '%s\n' "${PACKAGES[*]}" >"$STAMP"
  log "setup took $((SECONDS - start)) s"
}

ensure_ready() {
  require_root_user
  ensure_route
  root_is_ready || setup
}

# The quicker check before running a command: the setup was completed and
# the root runs its programs; `setup` and `build` check every package.
ensure_runnable() {
  require_root_user
  ensure_route
  [[ -f $STAMP && $(cat "$STAMP") == "${PACKAGES[*]}" ]] && root_runs && return 0
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
  for name in TERM CI DISPLAY CTEST_OUTPUT_ON_FAILURE CTEST_PARALLEL_LEVEL \
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

# The directory to run in: the current one when it lies inside the checkout
# or /tmp, which the root shares; the checkout otherwise.
run_dir() {
  local here
  here=$(pwd -P)
  if [[ $here == "$CHECKOUT" || $here == "$CHECKOUT"/* || $here == /tmp/* ]]; then
    printf '%s\n' "$here"
  else
    printf '%s\n' "$CHECKOUT"
  fi
}

# build32/ belongs to the route that configured it: the native route
# compiles inside the root, the emulated one with the cross compilers here.
# A build directory of the other route is started afresh.
build_dir_route() {
  [[ -f $BUILD_DIR/CMakeCache.txt ]] || return 0
  if grep -q '^CMAKE_TOOLCHAIN_FILE:.*i386-cross.cmake' "$BUILD_DIR/CMakeCache.txt"; then
    echo emulated
  else
    echo native
  fi
}

build() {
  ensure_ready
  local jobs=${JOBS:-2} targets=() t
  for t in "$@"; do targets+=(--target "$t"); done
  local previous
  previous=$(build_dir_route)
  if [[ -n $previous && $previous != "$ROUTE" ]]; then
    log "$BUILD_DIR was configured for the $previous route; starting it afresh"
    rm -rf --one-file-system -- "$BUILD_DIR"
  fi
  if [[ $ROUTE == native ]]; then
    enter_root "$CHECKOUT" sh -c '
      build=$1 jobs=$2; shift 2
      cmake -S . -B "$build" -DPICTURE_SANITIZE=OFF -DCMAKE_BUILD_TYPE=RelWithDebInfo -DPICTURE_TESTS=ON &&
      cmake --build "$build" -j "$jobs" "$@"' sh "$BUILD_DIR" "$jobs" "${targets[@]}"
  else
    host_packages g++-i686-linux-gnu cmake make pkg-config
    cmake -S "$CHECKOUT" -B "$BUILD_DIR" -DCMAKE_TOOLCHAIN_FILE="$CHECKOUT/tools/i386-cross.cmake" \
      -DPICTURE_I386_ROOT="$ROOT" \
      -DPICTURE_SANITIZE=OFF -DCMAKE_BUILD_TYPE=RelWithDebInfo -DPICTURE_TESTS=ON
    cmake --build "$BUILD_DIR" -j "$jobs" "${targets[@]}"
  fi
}

run_tests() {
  ensure_runnable
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
    route) route_command "$@" ;;
    emulator-off) require_root_user; emulator_off ;;
    run)
      [[ $# -gt 0 ]] || usage
      ensure_runnable
      enter_root "$(run_dir)" "$@"
      ;;
    build) build "$@" ;;
    test) run_tests "$@" ;;
    __enter) inside "$@" ;;
    *) usage ;;
  esac
}

main "$@"
