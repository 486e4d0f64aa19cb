# Set-up of the sample scripts (sourced by play-sample.sh and
# wall-sample.sh): on the first pass it sets up and builds what is missing
# (scripts/setup.sh), makes the sample clips into <build>/sample/ once, and
# runs the calling script again under one display and wineserver, with
# QUILLON_SAMPLE_BUILD naming the build directory.
if [[ -z ${QUILLON_SAMPLE_BUILD:-} ]]; then
  QUILLON_SAMPLE_BUILD=$("$ROOT/scripts/setup.sh")
  "$ROOT/player/make-sample.sh" "$QUILLON_SAMPLE_BUILD/sample" 2>/dev/null
  export QUILLON_SAMPLE_BUILD
  exec "$ROOT/scripts/with-display.sh" "$0" "$@"
fi
