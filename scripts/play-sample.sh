#!/usr/bin/env bash
# Plays a generated sample clip with QuillonPlay.exe under Xvfb + Wine and
# writes a screenshot of the window after the last picture.
#   scripts/play-sample.sh [h264|mkv|hevc] [extra QuillonPlay options]
# Sets up and builds what is missing first (scripts/setup.sh). The clips
# (raw H.264, H.264 in Matroska, raw HEVC, made with x264/x265 from a
# synthetic moving pattern) and the screenshot land in <build>/sample/.
set -euo pipefail
ROOT=$(cd "$(dirname "$0")/.." && pwd)
BUILD=$("$ROOT/scripts/setup.sh")
case ${1:-h264} in
  h264) CLIP=sample.264 ;;
  mkv) CLIP=sample.mkv ;;
  hevc) CLIP=sample.265 ;;
  *) echo "usage: $0 [h264|mkv|hevc] [QuillonPlay options]" >&2; exit 1 ;;
esac
shift || true
SAMPLE=$BUILD/sample
"$ROOT/player/make-sample.sh" "$SAMPLE" 2>/dev/null
SHOT=${CLIP%.*}-${CLIP##*.}.png
rm -f "$SAMPLE/$SHOT"
cd "$SAMPLE"
"$ROOT/scripts/with-display.sh" "$ROOT/scripts/wine-run.sh" "$BUILD/bin/QuillonPlay.exe" \
  --progress --screenshot "$SHOT" "$@" "$CLIP"
echo "screenshot: $SAMPLE/$SHOT"
