#!/usr/bin/env bash
# Runs a command with an X display for Wine (a private Xvfb unless DISPLAY is
# already set) and one persistent wineserver for the whole run.
set -euo pipefail
export WINEPREFIX=${WINEPREFIX:-${QUILLON_CACHE:-$HOME/.cache/quillon}/wineprefix}
export WINEDEBUG=${WINEDEBUG:--all}
XVFB_PID=
cleanup() {
  wineserver -k >/dev/null 2>&1 || true
  [[ -n $XVFB_PID ]] && kill "$XVFB_PID" >/dev/null 2>&1 || true
}
trap cleanup EXIT
if [[ -z ${DISPLAY:-} ]]; then
  for n in $(seq 90 130); do
    [[ -e /tmp/.X$n-lock || -e /tmp/.X11-unix/X$n ]] && continue
    Xvfb ":$n" -screen 0 1920x1200x24 -nolisten tcp >/dev/null 2>&1 &
    XVFB_PID=$!
    export DISPLAY=":$n"
    for _ in $(seq 50); do [[ -e /tmp/.X11-unix/X$n ]] && break; sleep 0.1; done
    break
  done
fi
wineserver -p
# Start Wine's background services now, detached from the command's pipes:
# started from inside a test they would inherit its output pipes and keep
# CTest waiting for them to close.
wine cmd.exe /c exit </dev/null >/dev/null 2>&1 || true
"$@"
