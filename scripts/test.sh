#!/usr/bin/env bash
# Sets up what is missing, builds, and runs the whole test suite under Wine.
set -euo pipefail
ROOT=$(cd "$(dirname "$0")/.." && pwd)
BUILD=$("$ROOT/scripts/setup.sh")
exec "$ROOT/scripts/with-display.sh" ctest --test-dir "$BUILD" --output-on-failure "$@"
