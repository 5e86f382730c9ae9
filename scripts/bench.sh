#!/usr/bin/env bash
# Builds the benchmarks, runs all groups beside their peers and writes docs/performance.md. Takes about a
# quarter of an hour; the machine should do nothing else.
#
#   scripts/bench.sh [FILTER]     with a filter (as --benchmark_filter): prints that part, writes nothing
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

scripts/install-deps.sh
scripts/install-deps.sh --bench
mkdir -p build
cmake --preset bench >build/bench.log
cmake --build --preset bench -j "$(nproc)" >>build/bench.log || { tail -n 40 build/bench.log; exit 1; }
qnbench=build/bench/benchmarks/qnbench
qnwave=$PWD/build/bench/tools/qnwave
# snprintf groups digits only in a locale that does.
mkdir -p build/locale
[ -d build/locale/en_US.UTF-8 ] || localedef -i en_US -f UTF-8 "$PWD/build/locale/en_US.UTF-8" >>build/bench.log 2>&1 || true
export LOCPATH=$PWD/build/locale
measure() {
  "$qnbench" --benchmark_filter="$1" --benchmark_repetitions=3 --benchmark_min_time=0.03 --benchmark_enable_random_interleaving=true \
    --benchmark_format=json >build/bench.json 2>>build/bench.log
}

if [ $# -gt 0 ]; then
  measure "$1"
  exec scripts/bench_table.py build/bench.json --against 0.5:1.0 --summary
fi

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
for rate in 44100 48000; do
  sox -R -n -r "$rate" -c 2 -b 16 "$scratch/$rate.wav" synth 600 pinknoise gain -6
done
{
  cat <<'END'
# Performance

Made by `scripts/bench.sh`: our code and its peers in one run. Absolute figures belong to the machine; the ratios are
what counts. A ratio "to" a peer is the peer's time divided by ours: above 1 we are faster. "time to 1.0" is our time
with a gain of 0.5 divided by that with scale 1.0: below 2 is wanted. memcpy copies as many
bytes as the conversion reads and writes together, halved, so that both move the same number of bytes.

END
  echo "Machine: $(sed -n 's/^model name[^:]*: //p' /proc/cpuinfo | head -n 1), $(nproc) cores," \
    "$(uname -m), $("${CXX:-c++}" --version | head -n 1), $(date -u +%Y-%m-%d)."
  echo
  measure '^copy/'
  scripts/bench_table.py build/bench.json --against 0.5:1.0 --summary
  measure '^wavread/'
  scripts/bench_table.py build/bench.json
  measure '^stream/'
  scripts/bench_table.py build/bench.json
  measure '^peaks/'
  scripts/bench_table.py build/bench.json
  for group in mix level resample fft fir iir dither effects yuv queue; do
    measure "^$group/"
    scripts/bench_table.py build/bench.json
  done
  measure '^text/'
  scripts/bench_table.py build/bench.json
  for group in host token; do
    measure "^$group/"
    scripts/bench_table.py build/bench.json
  done
  printf '\n## Whole commands\n\n'
  time_commands() {
    (cd "$scratch" && python3 "$OLDPWD/scripts/bench_commands.py" 11 "$@")
  }
  time_commands 'ten minutes, 16-bit stereo to 32-bit float' \
    "$qnwave convert --quiet --force --type f32 44100.wav ours.wav" \
    'sox=sox 44100.wav -e floating-point -b 32 sox.wav' \
    'ffmpeg=ffmpeg -v error -nostdin -y -i 44100.wav -c:a pcm_f32le ffmpeg.wav'
  echo
  time_commands 'ten minutes, 16-bit stereo, 48,000 to 44,100 Hz' \
    "$qnwave convert --quiet --force --rate 44100 48000.wav ours.wav" \
    'sox=sox 48000.wav -r 44100 sox.wav' \
    'ffmpeg=ffmpeg -v error -nostdin -y -i 48000.wav -ar 44100 ffmpeg.wav'
} >build/performance.md
mv build/performance.md docs/performance.md
echo "docs/performance.md is written."
