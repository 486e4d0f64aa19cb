#!/usr/bin/env bash
# Builds ffmpeg-7.dll: the LGPL parts of FFmpeg 7.1 as one statically linked
# module (avformat, avcodec, avutil, avfilter, swscale, swresample) with the
# D3D11VA hardware acceleration for H.264/HEVC, plus the headers we compile
# against. The source comes from Debian's trixie source suite, fetched through
# a private source list that reuses this machine's own Debian mirror.
#
# The result is cached outside the work tree, keyed by version and options:
#   $QUILLON_CACHE/ffmpeg-<version>-<key>/{bin/ffmpeg-7.dll,include,lib}
# Prints that directory on stdout; a second run costs nothing.
set -euo pipefail

CACHE_ROOT=${QUILLON_CACHE:-$HOME/.cache/quillon}
HOST=x86_64-w64-mingw32
SUITE=trixie

CONFIG_FLAGS=(
  --target-os=mingw32 --arch=x86_64 --enable-cross-compile
  --cross-prefix=$HOST- --cc=$HOST-gcc-posix --cxx=$HOST-g++-posix
  --pkg-config=false
  --enable-static --disable-shared --disable-programs --disable-doc
  --disable-autodetect --disable-network --disable-debug
  --disable-everything
  --enable-w32threads --enable-d3d11va
  --enable-hwaccel=h264_d3d11va,h264_d3d11va2,hevc_d3d11va,hevc_d3d11va2
  --enable-decoder=h264,hevc
  --enable-parser=h264,hevc
  --enable-demuxer=h264,hevc,mov,matroska
  --enable-bsf=h264_mp4toannexb,hevc_mp4toannexb,extract_extradata
  --enable-protocol=file
  --enable-filter=buffer,buffersink,format,null,scale
  --extra-cflags=-O2 --extra-ldflags=-static
)
# Bump RECIPE when the steps below change what ends up in the module.
RECIPE=1
KEY=$(printf '%s\n' "$RECIPE" "${CONFIG_FLAGS[@]}" | sha1sum | cut -c1-10)

log() { echo "[ffmpeg] $*" >&2; }
[[ ${1:-} == --key ]] && { echo "$KEY"; exit 0; }

# One build at a time: concurrent set-ups wait for the first one's result.
mkdir -p "$CACHE_ROOT"
exec 9>"$CACHE_ROOT/ffmpeg.lock"
flock 9

# --- source ---------------------------------------------------------------
SRC_CACHE=$CACHE_ROOT/ffmpeg-src
mkdir -p "$SRC_CACHE"
orig=$(ls "$SRC_CACHE"/ffmpeg_7.1*.orig.tar.xz 2>/dev/null | sort -V | tail -n1 || true)
if [[ -z $orig ]]; then
  mirror=$(awk '/^URIs:/{print $2; exit}' /etc/apt/sources.list.d/*.sources 2>/dev/null || true)
  if [[ -z $mirror ]]; then
    mirror=$(awk '$1=="deb"{for(i=2;i<=NF;i++) if($i ~ /^[a-z]+:\/\//){print $i; exit}}' /etc/apt/sources.list 2>/dev/null | head -n1)
  fi
  [[ -n $mirror ]] || { log "no Debian mirror found in the apt configuration"; exit 1; }
  work=$SRC_CACHE/apt
  mkdir -p "$work/lists/partial"
  echo "deb-src [signed-by=/usr/share/keyrings/debian-archive-keyring.gpg] $mirror $SUITE main" > "$work/src.list"
  APT=(apt-get -qq -o Dir::Etc::SourceList="$work/src.list" -o Dir::Etc::SourceParts=/dev/null
       -o Dir::State::Lists="$work/lists" -o APT::Sandbox::User=root)
  log "fetching the ffmpeg source package from $SUITE"
  "${APT[@]}" update >&2
  (cd "$SRC_CACHE" && "${APT[@]}" source --download-only ffmpeg >&2)
  orig=$(ls "$SRC_CACHE"/ffmpeg_7.1*.orig.tar.xz 2>/dev/null | sort -V | tail -n1 || true)
  [[ -n $orig ]] || { log "the $SUITE suite holds no ffmpeg 7.1 source"; exit 1; }
fi
VERSION=$(basename "$orig" | sed -E 's/^ffmpeg_(.*)\.orig\.tar\.xz$/\1/')
OUT=$CACHE_ROOT/ffmpeg-$VERSION-$KEY
if [[ -f $OUT/bin/ffmpeg-7.dll && -f $OUT/.done ]]; then
  echo "$OUT"; exit 0
fi

# --- build ----------------------------------------------------------------
BUILD=$CACHE_ROOT/ffmpeg-build-$VERSION-$KEY
rm -rf "$BUILD" "$OUT"
mkdir -p "$BUILD" "$OUT/bin"
log "building FFmpeg $VERSION in $BUILD"
tar -xf "$orig" -C "$BUILD" --strip-components=1
cd "$BUILD"
./configure --prefix="$OUT" "${CONFIG_FLAGS[@]}" > configure.log 2>&1 || { tail -30 configure.log >&2; exit 1; }
grep -q '^#define CONFIG_D3D11VA 1' config.h || { log "configure dropped d3d11va"; exit 1; }
make -j"$(nproc)" > make.log 2>&1 || { tail -40 make.log >&2; exit 1; }
make install > install.log 2>&1

# One module: every public entry point of the six libraries.
LIBS=(avformat avcodec avfilter swscale swresample avutil)
ARCHIVES=()
for l in "${LIBS[@]}"; do ARCHIVES+=("$OUT/lib/lib$l.a"); done
{
  echo "LIBRARY ffmpeg-7.dll"
  echo "EXPORTS"
  $HOST-nm -g --defined-only "${ARCHIVES[@]}" 2>/dev/null |
    awk '$2=="T"{print $3}' |
    grep -E '^(av_|avcodec_|avformat_|avio_|avutil_|avfilter_|avsubtitle_|sws_|swscale_|swr_|swresample_)' |
    sort -u
} > "$OUT/lib/ffmpeg-7.def"
$HOST-gcc-posix -shared -o "$OUT/bin/ffmpeg-7.dll" "$OUT/lib/ffmpeg-7.def" \
  -Wl,--whole-archive "${ARCHIVES[@]}" -Wl,--no-whole-archive \
  -static -static-libgcc -lbcrypt -lole32 -luser32 -lpsapi -lshlwapi \
  -Wl,--out-implib,"$OUT/lib/libffmpeg-7.dll.a"
$HOST-strip "$OUT/bin/ffmpeg-7.dll"
cp COPYING.LGPLv2.1 "$OUT/COPYING.LGPLv2.1"
echo "$VERSION ${CONFIG_FLAGS[*]}" > "$OUT/BUILDINFO"
touch "$OUT/.done"
rm -rf "$BUILD"
log "done: $OUT/bin/ffmpeg-7.dll"
echo "$OUT"
