#!/usr/bin/env bash
# Writes short sample clips of a synthetic moving pattern into DIR (default
# ./sample): colour bars with a block sliding across them, 25 fps, 320x240
# unless SIZE (WxH, both even) says otherwise.
#   sample.264  raw H.264 (Annex B), x264
#   sample.mkv  the same H.264 stream in Matroska, x264
#   sample.265  raw HEVC (Annex B), x265
#   sample-5fps.mkv  15 pictures at 5 fps in Matroska (3 s of timestamps), x264
# Needs Debian's x264, x265 and perl. FRAMES (default 30) sets the length.
set -euo pipefail
DIR=${1:-sample}
FRAMES=${FRAMES:-30}
SIZE=${SIZE:-320x240}
W=${SIZE%x*} H=${SIZE#*x}
mkdir -p "$DIR"

pattern() {  # [frames]
  perl -e '
    use strict; my ($w, $h, $frames) = @ARGV;
    # BT.601 studio-range bars: white yellow cyan green magenta red blue black
    my @bars = ([235,128,128], [210,16,146], [170,166,16], [145,54,34],
                [106,202,222], [81,90,240], [41,240,110], [16,128,128]);
    my @plane;
    for my $p (0 .. 2) {
      my $pw = $p ? $w / 2 : $w; my $row = "";
      for my $x (0 .. $pw - 1) { $row .= chr($bars[int($x * 8 / $pw)][$p]); }
      $plane[$p] = $row;
    }
    my @block = (180, 60, 200); my $bs = 64;
    binmode STDOUT;
    for my $f (0 .. $frames - 1) {
      my $bx = (16 + $f * 8) % ($w - $bs) & ~1; my $by = ($h - $bs) / 2;
      for my $p (0 .. 2) {
        my $s = $p ? 2 : 1; my ($pw, $ph) = ($w / $s, $h / $s);
        my $row = $plane[$p];
        my $blockRow = $row; substr($blockRow, $bx / $s, $bs / $s) = chr($block[$p]) x ($bs / $s);
        for my $y (0 .. $ph - 1) {
          print(($y >= $by / $s && $y < ($by + $bs) / $s) ? $blockRow : $row);
        }
      }
    }' "$W" "$H" "${1:-$FRAMES}"
}

x264_clip() {  # fps file
  x264 --quiet --demuxer raw --input-res ${W}x${H} --fps "$1" --preset veryfast --qp 18 --keyint 15 --bframes 0 \
    -o "$2" - 2>/dev/null
}
pattern | x264_clip 25 "$DIR/sample.264"
pattern | x264_clip 25 "$DIR/sample.mkv"
pattern | x265 --log-level error --input - --input-res ${W}x${H} --input-csp i420 --fps 25 \
  --preset fast --qp 18 --keyint 15 --bframes 0 -o "$DIR/sample.265" 2>/dev/null
pattern 15 | x264_clip 5 "$DIR/sample-5fps.mkv"
ls -l "$DIR"/sample.264 "$DIR"/sample.mkv "$DIR"/sample.265 "$DIR"/sample-5fps.mkv >&2
