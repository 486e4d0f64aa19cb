#!/usr/bin/env bash
# Builds the second test stack once: a Debian 13 (trixie) root file system
# with Wine 10 and DXVK on Mesa's lavapipe (software Vulkan), where NV12
# textures can be shader resources, plus a Wine prefix in which only d3d11,
# dxgi and d3d10core are DXVK's.
#   $QUILLON_CACHE/stack2/root-<key>             the root file system
#   $QUILLON_CACHE/stack2/prefix-<key>-<pkey>    the DXVK Wine prefix
# Prints both paths (one a line); a second run only checks the stamps.
set -euo pipefail
# Chroot and mounts need root: ask sudo, keeping the environment (the cache).
[[ $(id -u) == 0 ]] || exec sudo -E "$0" "$@"
ROOT=$(cd "$(dirname "$0")/.." && pwd)
CACHE=${QUILLON_CACHE:-$HOME/.cache/quillon}
DIR=$CACHE/stack2
SUITE=trixie
log() { echo "[stack2] $*" >&2; }
. "$ROOT/scripts/stack2-chroot.sh"

# Wine, DXVK, lavapipe, the fonts the tests draw with, and what the test
# suite runs besides Windows programs (ctest, the package test's consumer
# build, the sample clips, the import check).
PACKAGES=(
  wine wine64 xvfb xauth mesa-vulkan-drivers libgl1-mesa-dri dxvk-wine64
  fonts-liberation fonts-dejavu-core fonts-wqy-microhei
  cmake ninja-build g++-mingw-w64-x86-64-posix gcc-mingw-w64-x86-64-posix binutils-mingw-w64-x86-64
  x264 x265 perl
)
# Bump when the steps below change what ends up in the root or the prefix.
ROOT_RECIPE=1
PREFIX_RECIPE=1
KEY=$(printf '%s\n' "$ROOT_RECIPE" "$SUITE" "${PACKAGES[@]}" | sha1sum | cut -c1-10)
PKEY=$(cat <(echo "$PREFIX_RECIPE") "$ROOT/scripts/wine-prefix.sh" "$ROOT/scripts/wine-env.sh" \
  "$ROOT/scripts/stack2-prefix.sh" | sha1sum | cut -c1-10)
ROOTFS=$DIR/root-$KEY
PREFIX=$DIR/prefix-$KEY-$PKEY

done_already() { [[ -f $ROOTFS.done && -f $PREFIX.done ]]; }
if done_already; then printf '%s\n%s\n' "$ROOTFS" "$PREFIX"; exit 0; fi

mkdir -p "$DIR"
# One build at a time: a second set-up started meanwhile waits for the
# first one's result. A half-built tree never carries the stamp and is
# removed before the next attempt (its mounts died with its namespace).
exec 9>"$DIR/lock"
flock 9
if done_already; then printf '%s\n%s\n' "$ROOTFS" "$PREFIX"; exit 0; fi

if [[ ! -f $ROOTFS.done ]]; then
  command -v debootstrap >/dev/null || {
    log "installing debootstrap"
    apt-get update -qq >&2
    DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends debootstrap >/dev/null
  }
  MIRROR=$("$ROOT/scripts/debian-mirror.sh")
  rm -rf "$ROOTFS" "$ROOTFS.log"
  log "building the $SUITE root file system in $ROOTFS (a few minutes; log: $ROOTFS.log)"
  build_root() {
    set -e
    unshare --mount --propagation private debootstrap --variant=minbase "$SUITE" "$ROOTFS" "$MIRROR"
    printf '#!/bin/sh\nexit 101\n' > "$ROOTFS/usr/sbin/policy-rc.d"
    chmod +x "$ROOTFS/usr/sbin/policy-rc.d"
    stack2_chroot "$ROOTFS" -- /usr/bin/env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root \
      DEBIAN_FRONTEND=noninteractive sh -c \
      "apt-get update -q && apt-get install -y -q ${PACKAGES[*]} && apt-get clean"
  }
  if ! build_root > "$ROOTFS.log" 2>&1; then
    tail -n 30 "$ROOTFS.log" >&2
    log "building the root file system failed (log: $ROOTFS.log)"
    exit 1
  fi
  touch "$ROOTFS.done"
fi

if [[ ! -f $PREFIX.done ]]; then
  rm -rf "$PREFIX"
  mkdir -p "$PREFIX"
  log "preparing the DXVK Wine prefix $PREFIX"
  if ! stack2_chroot "$ROOTFS" "$ROOT" "$PREFIX" -- /usr/bin/env HOME=/root WINEPREFIX="$PREFIX" \
       "$ROOT/scripts/stack2-prefix.sh" > "$PREFIX.log" 2>&1; then
    tail -n 30 "$PREFIX.log" >&2
    log "preparing the prefix failed (log: $PREFIX.log)"
    exit 1
  fi
  touch "$PREFIX.done"
fi

# Older recipes' trees are no longer used.
for old in "$DIR"/root-* "$DIR"/prefix-*; do
  [[ $old == "$ROOTFS"* || $old == "$PREFIX"* ]] && continue
  rm -rf "$old"
done
log "ready"
printf '%s\n%s\n' "$ROOTFS" "$PREFIX"
