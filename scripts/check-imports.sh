#!/usr/bin/env bash
# Checks that every given Windows binary imports system DLLs only.
# Prints each binary's imports; fails on anything outside the list below.
set -euo pipefail
OBJDUMP=${OBJDUMP:-x86_64-w64-mingw32-objdump}
SYSTEM='^(kernel32|user32|gdi32|msvcrt|advapi32|ole32|oleaut32|shell32|shlwapi|comdlg32|bcrypt|psapi|version|ws2_32|winmm|d3d11|dxgi|d2d1|dwrite|d3dcompiler_47|windowscodecs|ntdll|api-ms-win-[a-z0-9-]+)\.dll$'
status=0
for bin in "$@"; do
  imports=$("$OBJDUMP" -p "$bin" | awk '/DLL Name:/{print tolower($3)}' | sort -u)
  echo "$(basename "$bin"): $(echo $imports)"
  for dll in $imports; do
    if ! [[ $dll =~ $SYSTEM ]]; then
      echo "  not a system DLL: $dll"
      status=1
    fi
  done
done
exit $status
