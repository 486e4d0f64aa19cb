#!/usr/bin/env bash
# Runs a command with an X display for Wine (a private Xvfb unless DISPLAY is
# already set) and one persistent wineserver for the whole run.
set -euo pipefail
export QUILLON_STACK=${QUILLON_STACK:-1}
. "$(dirname "$0")/wine-env.sh"
XVFB_PID=
cleanup() {
  wineserver -k >/dev/null 2>&1 || true
  [[ -n $XVFB_PID ]] && kill "$XVFB_PID" >/dev/null 2>&1 || true
}
trap cleanup EXIT
if [[ -z ${DISPLAY:-} ]]; then
  # Xvfb picks a free display number itself, so runs started together never
  # share (and later lose) one server.
  DISPLAY_FILE=$(mktemp)
  Xvfb -displayfd 3 -screen 0 1920x1200x24 -nolisten tcp 3>"$DISPLAY_FILE" >/dev/null 2>&1 &
  XVFB_PID=$!
  for _ in $(seq 100); do [[ -s $DISPLAY_FILE ]] && break; sleep 0.1; done
  export DISPLAY=":$(head -n1 "$DISPLAY_FILE")"
  rm -f "$DISPLAY_FILE"
  [[ $DISPLAY != ":" ]] || { echo "with-display: Xvfb did not start" >&2; exit 1; }
fi
wineserver -p
# Start Wine's background services now, detached from the command's pipes:
# started from inside a test they would inherit its output pipes and keep
# CTest waiting for them to close.
wine cmd.exe /c exit </dev/null >/dev/null 2>&1 || true
"$@"
