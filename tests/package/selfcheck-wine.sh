#!/usr/bin/env bash
# Runs QuillonSelfCheck.exe (beside QuillonSDK.dll, Velmor.dll and
# ffmpeg-7.dll in the build's bin) under Wine, where Direct3D 11 works but
# hardware decoding does not, and checks that outcome: exit code 2, the
# capability table (six rows of "n/a" without a video device under Wine's own
# Direct3D; under DXVK, QUILLON_STACK=2, a video device offering no profile),
# the embedded clip decoded in software, the SDK's refusal to set up a
# hardware decoder, and the verdict line.
set -uo pipefail
EXE=$1
ROOT=$(cd "$(dirname "$0")/../.." && pwd)
out=$(cd "$(dirname "$EXE")" && "$ROOT/scripts/wine-run.sh" "./$(basename "$EXE")" | tr -d '\r')
code=$?
echo "$out"
echo "exit code $code"
fail() { echo "FAILED: $*"; exit 1; }
((code == 2)) || fail "exit code $code, expected 2"

line() { grep -Eq "$1" <<< "$out" || fail "no line matching: $1"; }
line '^QuillonSelfCheck [0-9]+\.[0-9]+\.[0-9]+$'
line '^Adapter: +.+ \(vendor 0x[0-9a-f]{4,8}, device 0x[0-9a-f]{4,8}, [0-9]+ MB video memory\)$'
line '^Driver: +([0-9]+\.[0-9]+\.[0-9]+\.[0-9]+|unknown)$'
line '^Feature level: +1[0-2]_[01]$'
if [[ ${QUILLON_STACK:-1} == 2 ]]; then
  line '^Video device: +available$'
  row='no +no +0'
else
  line '^Video device: +not available \(0x80004002\)$'
  row='n/a +n/a +n/a'
fi
line '^Codec +Size +Profile +NV12 +Configs$'
rows=$(grep -Ec "^(H\\.264|HEVC) +[0-9]+x[0-9]+ +$row\$" <<< "$out")
((rows == 6)) || fail "$rows capability rows of \"$row\", expected 6"
for size in 1280x720 1920x1080 3840x2160; do
  for codec in 'H\.264' HEVC; do line "^$codec +$size "; done
done
line '^Clip: +H\.264 320x240, 10 frames embedded, 10 decoded in software$'
line '^SDK decode: +QuillonDecoderInitial returned -1$'
line '^Result: UNAVAILABLE - hardware decoding is not available on this machine$'
grep -q '^Frame ' <<< "$out" && fail "a per-frame table without a hardware decoder"
echo "selfcheck_wine: OK"
