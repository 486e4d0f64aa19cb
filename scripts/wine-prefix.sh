#!/usr/bin/env bash
# Creates the Wine prefix the tests and the demo run in (once), with the
# font families Wine lacks mapped to Debian's fonts, and no crash dialog: a
# crashing test prints a backtrace and ends instead of waiting for a click.
set -euo pipefail
. "$(dirname "$0")/wine-env.sh"
STAMP=$WINEPREFIX/.quillon-prefix-v3
[[ -f $STAMP ]] && exit 0
echo "[wine] preparing $WINEPREFIX"
mkdir -p "$WINEPREFIX"
wineboot -i >/dev/null 2>&1 || true
reg=$(mktemp --suffix=.reg)
# Version 5 registry files are UTF-16: the CJK family name is not ASCII.
cat <<'REG' | iconv -f UTF-8 -t UTF-16 > "$reg"
Windows Registry Editor Version 5.00

[HKEY_CURRENT_USER\Software\Wine\Fonts\Replacements]
"Times New Roman"="Liberation Serif"
"Arial"="Liberation Sans"
"Courier New"="Liberation Mono"
"思源黑体"="WenQuanYi Micro Hei"
"Microsoft YaHei"="WenQuanYi Micro Hei"
"SimSun"="WenQuanYi Micro Hei"
"SimHei"="WenQuanYi Micro Hei"
"NSimSun"="WenQuanYi Micro Hei"
"Segoe UI"="DejaVu Sans"
"Tahoma"="DejaVu Sans"
"Verdana"="DejaVu Sans"

[HKEY_CURRENT_USER\Software\Wine\WineDbg]
"ShowCrashDialog"=dword:00000000
REG
wine regedit "$reg" >/dev/null 2>&1
rm -f "$reg"
wineserver -w
touch "$STAMP"
