#!/usr/bin/env bash
# Plays the generated sample clips (raw H.264, H.264 in Matroska, raw HEVC)
# on a video wall with QuillonWall.exe under Xvfb + Wine: 16 tiles for 10
# seconds by default, each tile's figures printed at the end and a
# screenshot of the whole wall written to <build>/sample/wall.png. Outside
# the DXVK stack (QUILLON_STACK=2) the tiles are popup windows: Wine's own
# Direct3D never shows a swap chain of a child window.
#   scripts/wall-sample.sh [QuillonWall options, e.g. --tiles 4 --seconds 5]
set -euo pipefail
ROOT=$(cd "$(dirname "$0")/.." && pwd)
. "$ROOT/scripts/sample-setup.sh"
cd "$QUILLON_SAMPLE_BUILD/sample"
rm -f wall.png
TILES=(); [[ ${QUILLON_STACK:-1} == 2 ]] || TILES=(--popup-tiles)
"$ROOT/scripts/wine-run.sh" "$QUILLON_SAMPLE_BUILD/bin/QuillonWall.exe" --seconds 10 --stats --screenshot wall.png \
  "${TILES[@]}" "$@" sample.264 sample.mkv sample.265
echo "screenshot: $QUILLON_SAMPLE_BUILD/sample/wall.png"
