#!/usr/bin/env bash
# Creates the Wine prefix the tests and the demo run in (once), with the
# font families Wine lacks mapped to Debian's fonts.
set -euo pipefail
export WINEPREFIX=${WINEPREFIX:-${QUILLON_CACHE:-$HOME/.cache/quillon}/wineprefix}
export WINEDEBUG=-all WINEDLLOVERRIDES="mscoree,mshtml="
STAMP=$WINEPREFIX/.quillon-fonts-v1
[[ -f $STAMP ]] && exit 0
echo "[wine] preparing $WINEPREFIX"
mkdir -p "$WINEPREFIX"
wineboot -i >/dev/null 2>&1 || true
reg=$(mktemp --suffix=.reg)
cat > "$reg" <<'REG'
REGEDIT4

[HKEY_CURRENT_USER\Software\Wine\Fonts\Replacements]
"Times New Roman"="Liberation Serif"
"Arial"="Liberation Sans"
"Courier New"="Liberation Mono"
"Microsoft YaHei"="WenQuanYi Micro Hei"
"SimSun"="WenQuanYi Micro Hei"
"SimHei"="WenQuanYi Micro Hei"
"NSimSun"="WenQuanYi Micro Hei"
"Segoe UI"="DejaVu Sans"
"Tahoma"="DejaVu Sans"
"Verdana"="DejaVu Sans"
REG
wine regedit "$reg" >/dev/null 2>&1
rm -f "$reg"
wineserver -w
touch "$STAMP"
