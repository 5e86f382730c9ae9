#!/usr/bin/env bash
# Installs into a scratch folder and builds the smallest host against it, by the CMake package and by
# pkg-config; then makes the .deb and looks for what it must hold.
#
#   check_install.sh BUILD-FOLDER C++-COMPILER
set -euo pipefail
build=$1 compiler=$2
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
prefix=$scratch/prefix
cmake --install "$build" --prefix "$prefix" >"$scratch/install.log"
for file in bin/{qnimage,qnmetric,qntext,qnwave} share/man/man1/{qnimage,qnmetric,qntext,qnwave}.1 include/qn/qn.h; do
  [ -e "$prefix/$file" ] || { echo "not installed: $file"; exit 1; }
done
! find "$prefix" -name '*_internal.h' | grep . || { echo "an internal header is installed"; exit 1; }
"$prefix/bin/qnwave" --version
"$prefix/bin/qnimage" card "$scratch/card.png" --quiet
# The tool finds the module that draws.
sox -n "$scratch/tone.wav" synth 1 sine 440
"$prefix/bin/qnwave" draw "$scratch/tone.wav" "$scratch/tone.png"
# The library finds the module that names codecs, if it is built.
if [ -e "$build/qn/qnkernel/codec-names.so" ]; then
  sox -D "$scratch/tone.wav" -e a-law "$scratch/alaw.wav"
  "$prefix/bin/qnwave" info "$scratch/alaw.wav" | grep -q G.711 || { echo "the codecs have no names"; exit 1; }
fi

libdir=$(dirname "$(find "$prefix" -name 'libqnkernel.so.1')")
export LD_LIBRARY_PATH=$libdir

cmake -S tests/project/consumer -B "$scratch/consumer" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" \
  -DCMAKE_CXX_COMPILER="$compiler" >"$scratch/cmake.log"
cmake --build "$scratch/consumer" >"$scratch/build.log"
"$scratch/consumer/consumer" resources

export PKG_CONFIG_PATH=$libdir/pkgconfig
# The words of pkg-config are meant to split.
# shellcheck disable=SC2046
"$compiler" -std=c++20 tests/project/consumer/main.cpp -o "$scratch/by-pkg-config" \
  $(pkg-config --cflags --libs qnkernel)
"$scratch/by-pkg-config"

(cd "$scratch" && cpack --config "$build/CPackConfig.cmake" -B "$scratch/deb" >"$scratch/cpack.log") ||
  { cat "$scratch/cpack.log"; exit 1; }
contents=$(dpkg-deb --contents "$scratch"/deb/*.deb)
for file in libqnkernel.so.1 qnkernel.pc qnkernelConfig.cmake qn/qn.h bin/qnimage bin/qntext bin/qnwave qnkernel/qnwave-draw.so qnwave.1; do
  grep -q "$file" <<<"$contents" || { echo "the package lacks $file"; exit 1; }
done
if [ -e "$build/qn/qnkernel/codec-names.so" ]; then
  grep -q qnkernel/codec-names.so <<<"$contents" || { echo "the package lacks the names of codecs"; exit 1; }
  dpkg-deb --field "$scratch"/deb/*.deb Depends | grep -q libavformat || { echo "the package lacks libavformat"; exit 1; }
fi
