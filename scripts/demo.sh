#!/usr/bin/env bash
# The main job: sets up what is missing, builds, and runs the demonstration.
# Until the sample player exists, it writes records through the core-services
# module and shows the resulting log file.
set -euo pipefail
ROOT=$(cd "$(dirname "$0")/.." && pwd)
BUILD=$("$ROOT/scripts/setup.sh")
rm -f "$BUILD/bin/Velmor.log"
"$ROOT/scripts/with-display.sh" "$ROOT/scripts/wine-run.sh" "$BUILD/bin/LogDemo.exe"
echo "--- $BUILD/bin/Velmor.log"
cat "$BUILD/bin/Velmor.log"
