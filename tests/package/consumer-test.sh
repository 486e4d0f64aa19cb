#!/usr/bin/env bash
# Installs the SDK from build dir BUILD into a fresh prefix and checks the
# layout, makes the distributable ZIP with CPack, unpacks it, builds the
# consumer hosts against the unpacked SDK with find_package(QuillonSDK) and
# the same toolchain, and runs them under Wine.
#   consumer-test.sh BUILD SOURCE
set -euo pipefail
BUILD=$1 ROOT=$2
WORK=$BUILD/package-test
rm -rf "$WORK"
mkdir -p "$WORK"

step() { echo "== $*"; }

step "cmake --install"
cmake --install "$BUILD" --prefix "$WORK/prefix" > "$WORK/install.log"
missing=0
for f in bin/QuillonSDK.dll bin/Velmor.dll bin/ffmpeg-7.dll bin/QuillonPlay.exe bin/QuillonSelfCheck.exe \
         include/QuillonSDK.h lib/libQuillonSDK.dll.a lib/QuillonSDK.lib \
         lib/cmake/QuillonSDK/QuillonSDKConfig.cmake lib/cmake/QuillonSDK/QuillonSDKConfigVersion.cmake \
         share/doc/QuillonSDK/README.md share/doc/QuillonSDK/LICENSE.txt share/doc/QuillonSDK/NOTICE.txt \
         share/doc/QuillonSDK/api-reference.md share/doc/QuillonSDK/integration-guide.md \
         share/doc/QuillonSDK/ffmpeg/COPYING.LGPLv2.1 share/doc/QuillonSDK/ffmpeg/BUILDINFO; do
  [[ -f $WORK/prefix/$f ]] || { echo "missing in the install: $f"; missing=1; }
done
((missing == 0))
# Only the shipped files: no test programs or test modules.
if find "$WORK/prefix/bin" "$WORK/prefix/lib" -iname '*test*' -o -iname '*Recording*' -o -iname '*Double*' -o -iname '*gtest*' | grep .; then
  echo "test files in the install"; exit 1
fi

step "cpack -G ZIP"
(cd "$WORK" && cpack --config "$BUILD/CPackConfig.cmake" -G ZIP -B "$WORK/dist" > "$WORK/cpack.log")
zip=$(ls "$WORK"/dist/QuillonSDK-*-win64.zip)
echo "$(basename "$zip"): $(stat -c %s "$zip") bytes"
mkdir -p "$WORK/unpacked"
(cd "$WORK/unpacked" && cmake -E tar xf "$zip")
sdk=$WORK/unpacked/$(basename "$zip" .zip)
# The ZIP holds exactly what the install laid out.
diff <(cd "$WORK/prefix" && find . -type f | sort) <(cd "$sdk" && find . -type f | sort)

step "consumer hosts against the unpacked ZIP"
cmake -S "$ROOT/tests/package/consumer" -B "$WORK/consumer" -G Ninja \
  -DCMAKE_TOOLCHAIN_FILE="$ROOT/cmake/mingw-w64-x86_64.cmake" -DCMAKE_BUILD_TYPE=Release \
  -DQuillonSDK_DIR="$sdk/lib/cmake/QuillonSDK" > "$WORK/consumer-configure.log" || { cat "$WORK/consumer-configure.log"; exit 1; }
cmake --build "$WORK/consumer"
"$ROOT/scripts/check-imports.sh" --allow QuillonSDK.dll "$WORK/consumer/host_c.exe" "$WORK/consumer/host_cpp.exe"
for host in host_c host_cpp; do
  grep -qi 'DLL Name: QuillonSDK.dll' <<< "$(x86_64-w64-mingw32-objdump -p "$WORK/consumer/$host.exe")" ||
    { echo "$host.exe does not import QuillonSDK.dll"; exit 1; }
done

for host in host_c host_cpp; do
  step "$host.exe under Wine"
  (cd "$WORK/consumer" && "$ROOT/scripts/wine-run.sh" "./$host.exe") | tr -d '\r' | tee "$WORK/$host.out"
  grep -qx "$host: OK" "$WORK/$host.out"
done
