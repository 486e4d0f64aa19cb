#!/usr/bin/env bash
# Runs tools/shaderc under Wine for the build. shaderc exits 2 on bad usage,
# 3 when a shader does not compile and 4 when it cannot write its output:
# those fail the build at once. Any other failure means Wine itself did not
# get the program running (seen once in a fresh build, exiting without a
# word): try again.
set -u
WINE_RUN=$1
shift
for attempt in 1 2 3; do
  "$WINE_RUN" "$@"
  rc=$?
  case $rc in
    0) exit 0 ;;
    2|3|4) exit $rc ;;
  esac
  echo "shaderc: Wine exited with $rc (attempt $attempt)" >&2
  sleep 1
done
exit 1
