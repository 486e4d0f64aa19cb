#!/usr/bin/env bash
# Runs CMD on the second test stack (Wine 10 + DXVK on lavapipe in the
# Debian 13 root file system that scripts/stack2.sh builds once):
#   scripts/with-stack2.sh CMD...
# CMD runs from the same working directory, with the repository, the working
# directory, $QUILLON_BUILD_DIR, the cache (the FFmpeg build) and every absolute directory named in its
# arguments visible at the same paths, under a private Xvfb and one
# persistent wineserver (scripts/with-display.sh), with QUILLON_STACK=2.
# WINEPREFIX is the stack's DXVK prefix, or a private copy of it at
# $QUILLON_STACK2_PREFIX (made or refreshed here): runs at the same time
# must not share a prefix. Every mount vanishes when the run ends.
set -euo pipefail
# Chroot and mounts need root: ask sudo, keeping the environment (the cache).
[[ $(id -u) == 0 ]] || exec sudo -E "$0" "$@"
ROOT=$(cd "$(dirname "$0")/.." && pwd)
[[ $# -gt 0 ]] || { echo "usage: $0 CMD..." >&2; exit 2; }
. "$ROOT/scripts/stack2-chroot.sh"
{ read -r ROOTFS; read -r PREFIX; } < <("$ROOT/scripts/stack2.sh")
[[ -n ${PREFIX:-} ]] || exit 1

if [[ -n ${QUILLON_STACK2_PREFIX:-} ]]; then
  copy=$QUILLON_STACK2_PREFIX
  [[ $copy == /* ]] || copy=$PWD/$copy
  if [[ $(cat "$copy/.quillon-stack2-from" 2>/dev/null) != "$PREFIX" ]]; then
    # Replace only an earlier copy or a Wine prefix, never anything else.
    if [[ -e $copy && ! -f $copy/.quillon-stack2-from && ! -f $copy/system.reg ]] &&
       [[ -n $(ls -A "$copy" 2>/dev/null) ]]; then
      echo "with-stack2: $copy is neither empty nor a Wine prefix" >&2; exit 1
    fi
    rm -rf "$copy"
    mkdir -p "$(dirname "$copy")"
    cp -a "$PREFIX" "$copy"
    echo "$PREFIX" > "$copy/.quillon-stack2-from"
  fi
  PREFIX=$copy
fi

# Host directories to show inside: not the system's own, not the stack's.
binds=("$ROOT" "$PWD" "$PREFIX" "${QUILLON_CACHE:-$HOME/.cache/quillon}")
[[ -n ${QUILLON_BUILD_DIR:-} ]] && binds+=("$QUILLON_BUILD_DIR")
for a in "$@"; do
  a=${a#--*=}
  [[ $a == /* && -d $a ]] && binds+=("$a")
done
shown=()
for d in "${binds[@]}"; do
  d=$(realpath -m "$d")
  case $d in
    /|/bin*|/boot*|/dev*|/etc*|/lib*|/proc*|/run*|/sbin*|/sys*|/usr*|/var*|"$ROOTFS"*) continue ;;
  esac
  shown+=("$d")
done
# The build's CMake files name the host CMake's own data directory (CPack's
# templates): show it where the stack's CMake has none of that version.
for d in /usr/share/cmake-*; do
  [[ -d $d/Templates && ! -e $ROOTFS$d/Templates ]] && shown+=("$d")
done
# Parents before children, each once.
mapfile -t shown < <(printf '%s\n' "${shown[@]}" | sort -u)

stack2_chroot "$ROOTFS" "${shown[@]}" -- \
  /usr/bin/env -u DISPLAY -u XAUTHORITY -u TMPDIR HOME=/root WINEPREFIX="$PREFIX" \
  QUILLON_STACK=2 DXVK_LOG_LEVEL=none \
  bash -c 'cd "$1" 2>/dev/null || cd /; shift; exec "$0" "$@"' "$ROOT/scripts/with-display.sh" "$PWD" "$@"
