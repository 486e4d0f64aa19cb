#!/usr/bin/env bash
# Runs a Windows program under Wine in the project's prefix. CTest uses it as
# the cross-compiling emulator.
export WINEPREFIX=${WINEPREFIX:-${QUILLON_CACHE:-$HOME/.cache/quillon}/wineprefix}
export WINEDEBUG=${WINEDEBUG:--all}
export WINEDLLOVERRIDES=${WINEDLLOVERRIDES:-mscoree,mshtml=}
exec wine "$@"
