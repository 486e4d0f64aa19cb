#!/usr/bin/env bash
# Checks that every given Windows binary imports system DLLs only.
# Prints each binary's imports; fails on anything outside the list below.
# Options, before the binaries: --version-resource also checks that each
# binary carries a VERSIONINFO resource and prints its file version;
# --allow NAME.dll accepts that DLL too (a host linked against the SDK).
set -euo pipefail
OBJDUMP=${OBJDUMP:-x86_64-w64-mingw32-objdump}
STRINGS=${STRINGS:-x86_64-w64-mingw32-strings}
SYSTEM='^(kernel32|user32|gdi32|msvcrt|advapi32|ole32|oleaut32|shell32|shlwapi|comdlg32|bcrypt|psapi|version|ws2_32|winmm|d3d11|dxgi|d2d1|dwrite|d3dcompiler_47|windowscodecs|ntdll|api-ms-win-[a-z0-9-]+)\.dll$'
versions=0
allowed=()
while [[ ${1:-} == --* ]]; do
  case $1 in
    --version-resource) versions=1; shift ;;
    --allow) allowed+=("${2,,}"); shift 2 ;;
    *) echo "unknown option $1" >&2; exit 2 ;;
  esac
done
status=0
for bin in "$@"; do
  imports=$("$OBJDUMP" -p "$bin" | awk '/DLL Name:/{print tolower($3)}' | sort -u)
  echo "$(basename "$bin"): $(echo $imports)"
  for dll in $imports; do
    if ! [[ $dll =~ $SYSTEM ]] && ! [[ " ${allowed[*]} " == *" $dll "* ]]; then
      echo "  not a system DLL: $dll"
      status=1
    fi
  done
  if ((versions)); then
    # RT_VERSION (type 16) in the resource directory, and its VS_VERSION_INFO block.
    rsrc=$("$OBJDUMP" -p "$bin" | grep -c 'Resource Directory \[.rsrc\]' || true)
    texts=$("$STRINGS" -el "$bin")
    if ((rsrc > 0)) && grep -qx 'VS_VERSION_INFO' <<< "$texts"; then
      echo "  version $(grep -A1 -x 'FileVersion' <<< "$texts" | tail -n1)"
    else
      echo "  no version resource"
      status=1
    fi
  fi
done
exit $status
