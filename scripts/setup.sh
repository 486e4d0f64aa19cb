#!/usr/bin/env bash
# Installs what a fresh Debian 12 machine lacks, builds the FFmpeg module,
# prepares the Wine prefix and the second test stack (scripts/stack2.sh),
# configures and builds the SDK.
# Idempotent: a second run only checks and rebuilds what changed.
# Prints nothing on stdout but the build directory.
set -euo pipefail
ROOT=$(cd "$(dirname "$0")/.." && pwd)
BUILD=${QUILLON_BUILD_DIR:-$ROOT/build}
export QUILLON_CACHE=${QUILLON_CACHE:-$HOME/.cache/quillon}
log() { echo "[setup] $*" >&2; }

PACKAGES=(
  cmake ninja-build make pkg-config nasm xz-utils dpkg-dev
  g++-mingw-w64-x86-64-posix gcc-mingw-w64-x86-64-posix mingw-w64-tools binutils-mingw-w64-x86-64
  llvm debootstrap
  wine wine64 xvfb xauth x11-utils
  googletest x264 x265
  fonts-liberation fonts-dejavu-core fonts-wqy-microhei
)
missing=()
for p in "${PACKAGES[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
if ((${#missing[@]})); then
  SUDO=; [[ $(id -u) == 0 ]] || SUDO=sudo
  log "installing: ${missing[*]}"
  $SUDO apt-get update -qq >&2
  DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}" >&2
fi

# The stack-2 root file system is mostly downloading: build it meanwhile.
"$ROOT/scripts/stack2.sh" >/dev/null &
STACK2_PID=$!

FFMPEG_DIR=$("$ROOT/scripts/build-ffmpeg.sh")

"$ROOT/scripts/wine-prefix.sh" >&2

if [[ ! -f $BUILD/build.ninja ]]; then
  cmake -S "$ROOT" -B "$BUILD" -G Ninja \
    -DCMAKE_TOOLCHAIN_FILE="$ROOT/cmake/mingw-w64-x86_64.cmake" \
    -DCMAKE_BUILD_TYPE=Release \
    -DQUILLON_FFMPEG_DIR="$FFMPEG_DIR" >&2
else
  cmake -S "$ROOT" -B "$BUILD" -DQUILLON_FFMPEG_DIR="$FFMPEG_DIR" >/dev/null
fi
cmake --build "$BUILD" >&2
wait "$STACK2_PID" || { log "setting up stack 2 failed"; exit 1; }
echo "$BUILD"
