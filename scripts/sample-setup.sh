# Set-up of the sample scripts (sourced by play-sample.sh and
# wall-sample.sh): on the first pass it sets up and builds what is missing
# (scripts/setup.sh), makes the sample clips into <build>/sample/ once, and
# runs the calling script again under one display and wineserver (the DXVK
# stack's with QUILLON_STACK=2), with QUILLON_SAMPLE_BUILD naming the build
# directory.
if [[ -z ${QUILLON_SAMPLE_BUILD:-} ]]; then
  QUILLON_SAMPLE_BUILD=$("$ROOT/scripts/setup.sh")
  "$ROOT/player/make-sample.sh" "$QUILLON_SAMPLE_BUILD/sample" 2>/dev/null
  export QUILLON_SAMPLE_BUILD
  if [[ ${QUILLON_STACK:-1} == 2 ]]; then
    QUILLON_BUILD_DIR=$QUILLON_SAMPLE_BUILD exec "$ROOT/scripts/with-stack2.sh" "$0" "$@"
  fi
  exec "$ROOT/scripts/with-display.sh" "$0" "$@"
fi
