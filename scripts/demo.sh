#!/usr/bin/env bash
# The main job: sets up what is missing and builds, generates short sample
# clips of a synthetic moving pattern (H.264 with x264, HEVC with x265),
# plays them with QuillonPlay.exe in a window under Xvfb + Wine, and writes a
# screenshot of the window after the last picture of each.
#   scripts/demo.sh [extra QuillonPlay options]
# It runs on the second test stack (Wine + DXVK, built once on first use), so
# the pictures go through the SDK's GPU texture path; QUILLON_STACK=1 plays
# on the host's Wine instead (CPU-data path).
set -euo pipefail
ROOT=$(cd "$(dirname "$0")/.." && pwd)
export QUILLON_STACK=${QUILLON_STACK:-2}
exec "$ROOT/scripts/play-sample.sh" h264 hevc "$@"
