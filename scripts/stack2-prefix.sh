#!/usr/bin/env bash
# Runs inside the stack-2 root file system (scripts/stack2.sh): creates the
# Wine prefix $WINEPREFIX like the stack-1 one (scripts/wine-prefix.sh: fonts),
# then hands d3d11, dxgi and d3d10core - only these - to DXVK. Wine's own
# d3d10 and d3d10_1 stay: Direct2D needs d3d10_1.
set -euo pipefail
ROOT=$(cd "$(dirname "$0")/.." && pwd)
. "$ROOT/scripts/wine-env.sh"
DISPLAY_FILE=$(mktemp)
Xvfb -displayfd 3 -screen 0 1920x1200x24 -nolisten tcp 3>"$DISPLAY_FILE" >/dev/null 2>&1 &
XVFB_PID=$!
trap 'kill $XVFB_PID 2>/dev/null || true' EXIT
for _ in $(seq 100); do [[ -s $DISPLAY_FILE ]] && break; sleep 0.1; done
export DISPLAY=":$(head -n1 "$DISPLAY_FILE")"
[[ $DISPLAY != ":" ]] || { echo "Xvfb did not start" >&2; exit 1; }

"$ROOT/scripts/wine-prefix.sh"
for d in d3d11 dxgi d3d10core; do
  ln -sf "/usr/lib/dxvk/wine64/$d.dll.so" "$WINEPREFIX/drive_c/windows/system32/$d.dll"
  wine reg add 'HKCU\Software\Wine\DllOverrides' /v $d /d native /f
done
# Under Xvfb with XRandR Wine reports a 0 Hz display mode, and DXVK's dxgi
# divides by it in Present and GetDisplayModeList.
wine reg add 'HKCU\Software\Wine\X11 Driver' /v UseXRandR /d N /f
wineserver -w
