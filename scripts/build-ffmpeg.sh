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
# Two cache levels: the compiled libraries and headers, keyed by the configure
# flags, and the linked module, keyed also by the link step; a change to the
# link step does not compile FFmpeg again.
# Bump COMPILE_RECIPE when the compile steps change, RECIPE when the link step
# changes what ends up in the module.
COMPILE_RECIPE=1
RECIPE=2
LIBKEY=$(printf '%s\n' "$COMPILE_RECIPE" "${CONFIG_FLAGS[@]}" | sha1sum | cut -c1-10)
KEY=$(printf '%s\n' "$LIBKEY" "$RECIPE" | sha1sum | cut -c1-10)

log() { echo "[ffmpeg] $*" >&2; }

# One build at a time: concurrent set-ups wait for the first one's result.
mkdir -p "$CACHE_ROOT"
exec 9>"$CACHE_ROOT/ffmpeg.lock"
flock 9

# --- source ---------------------------------------------------------------
SRC_CACHE=$CACHE_ROOT/ffmpeg-src
mkdir -p "$SRC_CACHE"
orig=$(ls "$SRC_CACHE"/ffmpeg_7.1*.orig.tar.xz 2>/dev/null | sort -V | tail -n1 || true)
if [[ -z $orig ]]; then
  mirror=$("$(dirname "$0")/debian-mirror.sh")
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
DSC=$(ls "$SRC_CACHE"/ffmpeg_"$VERSION"-*.dsc 2>/dev/null | sort -V | tail -n1 || true)
DEBVERSION=$(basename "${DSC:-ffmpeg_$VERSION.dsc}" .dsc | sed 's/^ffmpeg_//')
LIBS_OUT=$CACHE_ROOT/ffmpeg-$VERSION-$LIBKEY
OUT=$CACHE_ROOT/ffmpeg-$VERSION-$KEY
if [[ -f $OUT/bin/ffmpeg-7.dll && -f $OUT/.done ]]; then
  echo "$OUT"; exit 0
fi

# --- compile: static libraries and headers --------------------------------
if [[ ! -f $LIBS_OUT/.done && ! -f $LIBS_OUT/.libs ]]; then
  BUILD=$CACHE_ROOT/ffmpeg-build-$VERSION-$LIBKEY
  rm -rf "$BUILD" "$LIBS_OUT"
  mkdir -p "$BUILD" "$LIBS_OUT"
  log "building FFmpeg $VERSION in $BUILD"
  tar -xf "$orig" -C "$BUILD" --strip-components=1
  cd "$BUILD"
  ./configure --prefix="$LIBS_OUT" "${CONFIG_FLAGS[@]}" > configure.log 2>&1 || { tail -30 configure.log >&2; exit 1; }
  grep -q '^#define CONFIG_D3D11VA 1' config.h || { log "configure dropped d3d11va"; exit 1; }
  make -j"$(nproc)" > make.log 2>&1 || { tail -40 make.log >&2; exit 1; }
  make install > install.log 2>&1
  cp COPYING.LGPLv2.1 "$LIBS_OUT/COPYING.LGPLv2.1"
  touch "$LIBS_OUT/.libs"
  cd "$CACHE_ROOT"
  rm -rf "$BUILD"
fi

# --- link: one module with every public entry point of the six libraries ---
rm -rf "$OUT"
mkdir -p "$OUT/bin" "$OUT/lib" "$OUT/obj"
cp -a "$LIBS_OUT/include" "$OUT/include"
cp "$LIBS_OUT/COPYING.LGPLv2.1" "$OUT/COPYING.LGPLv2.1"
LIBS=(avformat avcodec avfilter swscale swresample avutil)
ARCHIVES=()
for l in "${LIBS[@]}"; do ARCHIVES+=("$LIBS_OUT/lib/lib$l.a"); done
{
  echo "LIBRARY ffmpeg-7.dll"
  echo "EXPORTS"
  $HOST-nm -g --defined-only "${ARCHIVES[@]}" 2>/dev/null |
    awk '$2=="T"{print $3}' |
    grep -E '^(av_|avcodec_|avformat_|avio_|avutil_|avfilter_|avsubtitle_|sws_|swscale_|swr_|swresample_)' |
    sort -u
} > "$OUT/lib/ffmpeg-7.def"

# Version resource: FFmpeg's own version number, licence and origin.
IFS=. read -r V1 V2 V3 <<< "${VERSION%%[^0-9.]*}"
cat > "$OUT/obj/version.rc" <<RC
#include <winver.h>
1 VERSIONINFO
FILEVERSION     ${V1:-0},${V2:-0},${V3:-0},0
PRODUCTVERSION  ${V1:-0},${V2:-0},${V3:-0},0
FILEFLAGSMASK   VS_FFI_FILEFLAGSMASK
FILEFLAGS       0
FILEOS          VOS_NT_WINDOWS32
FILETYPE        VFT_DLL
FILESUBTYPE     VFT2_UNKNOWN
BEGIN
  BLOCK "StringFileInfo"
  BEGIN
    BLOCK "040904b0"
    BEGIN
      VALUE "CompanyName",      "FFmpeg project"
      VALUE "FileDescription",  "FFmpeg $VERSION libraries (LGPL v2.1 or later) for the Quillon SDK"
      VALUE "FileVersion",      "$VERSION"
      VALUE "InternalName",     "ffmpeg-7"
      VALUE "LegalCopyright",   "Copyright the FFmpeg developers; GNU LGPL v2.1 or later"
      VALUE "OriginalFilename", "ffmpeg-7.dll"
      VALUE "ProductName",      "FFmpeg"
      VALUE "ProductVersion",   "$VERSION"
      VALUE "Comments",         "Built from Debian source package ffmpeg $DEBVERSION"
    END
  END
  BLOCK "VarFileInfo"
  BEGIN
    VALUE "Translation", 0x409, 1200
  END
END
RC
$HOST-windres -O coff -i "$OUT/obj/version.rc" -o "$OUT/obj/version.o"

$HOST-gcc-posix -shared -o "$OUT/bin/ffmpeg-7.dll" "$OUT/lib/ffmpeg-7.def" "$OUT/obj/version.o" \
  -Wl,--whole-archive "${ARCHIVES[@]}" -Wl,--no-whole-archive \
  -static -static-libgcc -lbcrypt -lole32 -luser32 -lpsapi -lshlwapi \
  -Wl,--out-implib,"$OUT/lib/libffmpeg-7.dll.a"
$HOST-strip "$OUT/bin/ffmpeg-7.dll"
rm -rf "$OUT/obj"
{
  echo "FFmpeg $VERSION, Debian source package ffmpeg $DEBVERSION (suite $SUITE, file $(basename "$orig"))"
  echo "configure ${CONFIG_FLAGS[*]}"
  echo "linked as one module: ${LIBS[*]}"
} > "$OUT/BUILDINFO"
touch "$OUT/.done"
log "done: $OUT/bin/ffmpeg-7.dll"
echo "$OUT"
