#!/usr/bin/env bash
# Plays generated sample clips with QuillonPlay.exe under Xvfb + Wine and
# writes a screenshot of the window after the last picture of each.
#   scripts/play-sample.sh [h264|mkv|hevc ...] [extra QuillonPlay options]
# QUILLON_STACK=2 plays them on the second test stack (Wine + DXVK,
# scripts/with-stack2.sh, built once on first use), where the player shows
# its software-decoded pictures through the GPU texture path; otherwise on
# the host's Wine (CPU-data path).
# Sets up and builds what is missing first (scripts/setup.sh). The clips
# (raw H.264, H.264 in Matroska, raw HEVC, made with x264/x265 from a
# synthetic moving pattern) and the screenshots land in <build>/sample/.
set -euo pipefail
ROOT=$(cd "$(dirname "$0")/.." && pwd)
. "$ROOT/scripts/sample-setup.sh"
CLIPS=()
while [[ $# -gt 0 ]]; do
  case $1 in
    h264) CLIPS+=(sample.264) ;;
    mkv) CLIPS+=(sample.mkv) ;;
    hevc) CLIPS+=(sample.265) ;;
    -*) break ;;
    *) echo "usage: $0 [h264|mkv|hevc ...] [QuillonPlay options]" >&2; exit 1 ;;
  esac
  shift
done
[[ ${#CLIPS[@]} -gt 0 ]] || CLIPS=(sample.264)
SAMPLE=$QUILLON_SAMPLE_BUILD/sample
cd "$SAMPLE"
for CLIP in "${CLIPS[@]}"; do
  SHOT=${CLIP%.*}-${CLIP##*.}.png
  rm -f "$SHOT"
  "$ROOT/scripts/wine-run.sh" "$QUILLON_SAMPLE_BUILD/bin/QuillonPlay.exe" --progress --screenshot "$SHOT" "$@" "$CLIP"
  echo "screenshot: $SAMPLE/$SHOT"
done
