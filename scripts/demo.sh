#!/usr/bin/env bash
# Builds the library and its tools, and takes one recording down the main road: what is in the file, its
# samples as 32-bit float in a Wave64 file and back, a header destroyed and repaired, and its picture; then a
# video frame as a camera would give it, checked for broadcasting.
#
#   scripts/demo.sh [file.wav]    without a file: a recording from the package alsa-utils
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
case "${1:-}" in -*) sed -n '2,6s/^# \{0,1\}//p' "$0"; exit 2 ;; esac

scripts/install-deps.sh
source=${1:-/usr/share/sounds/alsa/Front_Center.wav}
[ -r "$source" ] || { echo "demo: $source cannot be read" >&2; exit 1; }

mkdir -p build demo
cmake --preset release -DQN_BUILD_TESTS=OFF -B build/demo >build/demo.log 2>&1 &&
  cmake --build build/demo -j "$(nproc)" >>build/demo.log 2>&1 || { tail -n 60 build/demo.log; exit 1; }
qnwave=build/demo/tools/qnwave
qntext=build/demo/tools/qntext
qnimage=build/demo/tools/qnimage

say() { printf '\n\033[1m%s\033[0m\n' "$*"; }
step() { printf '$ qnwave %s\n' "$*"; "$qnwave" "$@"; }
picture() { printf '$ qnimage %s\n' "$*"; "$qnimage" "$@"; }

say "What is in the file"
step info "$source"

say "The same for a reader of German, in timecode of 25 frames"
step info --lang de --time-format smpte-25 "$source"
printf '$ qntext --lang de %s\n' "'\$d Hz\$, %d Bit\$, %s' 44100 16 Stereo"
"$qntext" --lang de '$d Hz$, %d Bit$, %s' 44100 16 Stereo

say "To 32-bit float in a Wave64 file, 6 dB softer, and back to 16 bits"
step convert --force --type f32 --gain -6 "$source" demo/float.w64
step convert --force --type s16 demo/float.w64 demo/back.wav
step info demo/back.wav

say "A header that was lost, and its repair"
step convert --force --type s16 "$source" demo/damaged.wav
samples=$(tail -c +47 demo/damaged.wav | cksum)
dd if=/dev/zero of=demo/damaged.wav bs=1 count=12 conv=notrunc status=none  # the RIFF header goes
dd if=/dev/zero of=demo/damaged.wav bs=1 seek=42 count=4 conv=notrunc status=none  # and the data size
step info demo/damaged.wav || true
rm -f demo/damaged.wav.header.bak
step repair demo/damaged.wav
if [ "$samples" = "$(tail -c +47 demo/damaged.wav | cksum)" ]; then
  echo "Every sample is where it was."
else
  echo "demo: the samples changed" >&2
  exit 1
fi

say "At the rate of a CD, in a room, and how loud that is"
step convert --force --rate 44100 "$source" demo/cd.wav
step reverb --force --room cathedral demo/cd.wav demo/cathedral.wav
step levels demo/cathedral.wav

say "Its peaks, for editors to draw from, and its picture"
mv demo/damaged.wav demo/repaired.wav
step peaks demo/repaired.wav
step draw --force demo/repaired.wav demo/waveform.png

say "Colour bars as a frame of video, and where they are too strong to be sent"
picture card --force --kind bars --level 100 --fourcc v210 demo/bars.raw
picture info --size 1920x1080 --fourcc v210 demo/bars.raw
picture convert --force --size 1920x1080 --fourcc v210 demo/bars.raw demo/bars.png
picture legal --force demo/bars.png demo/illegal.png

say "All that was made"
ls -l demo | awk 'NR > 1 {printf "%-30s %10d bytes\n", "demo/" $NF, $5}'
echo "The waveform of the recording: $PWD/demo/waveform.png"
