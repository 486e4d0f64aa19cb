#!/usr/bin/env bash
# Runs a Windows program under Wine in the project's prefix. CTest uses it as
# the cross-compiling emulator.
. "$(dirname "$0")/wine-env.sh"
exec wine "$@"
