#!/usr/bin/env bash
# Installs the Debian packages that the build, the tests and the demo need. Quiet when nothing is missing;
# says which package cannot be had when one cannot.
#
#   scripts/install-deps.sh            what scripts/test.sh and scripts/demo.sh need
#   scripts/install-deps.sh --bench    the peers of the benchmarks as well
set -euo pipefail

packages=(
  g++ cmake ninja-build pkg-config git python3
  libicu-dev libsqlite3-dev libhwy-dev gettext locales
  libcairo2-dev libpango1.0-dev libpng-dev fonts-dejavu-core
  libavcodec-dev libavformat-dev libavutil-dev
  libgtest-dev libsndfile1-dev libswscale-dev libyuv-dev
  clang-format
  sox ffmpeg alsa-utils jq dpkg-dev file
)
if [ "${1:-}" = --bench ]; then
  packages+=(libbenchmark-dev libswresample-dev libfmt-dev libfftw3-dev libkissfft-dev
    libsoxr-dev libsamplerate0-dev libspeexdsp-dev)
elif [ $# -gt 0 ]; then
  sed -n '2,6s/^# \{0,1\}//p' "$0"
  exit 2
fi

missing=()
for package in "${packages[@]}"; do
  state=$(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null || true)
  [ "$state" = installed ] || missing+=("$package")
done
[ ${#missing[@]} -gt 0 ] || exit 0

echo "Installing: ${missing[*]}"
root=()
if [ "$(id -u)" != 0 ]; then
  command -v sudo >/dev/null || {
    echo "Root rights are needed to install packages. As root: apt-get install ${missing[*]}" >&2
    exit 1
  }
  root=(sudo)
fi
log=$(mktemp)
trap 'rm -f "$log"' EXIT
export DEBIAN_FRONTEND=noninteractive
apt() { "${root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get -qq -o DPkg::Lock::Timeout=300 "$@" >"$log" 2>&1; }

apt update || echo "warning: the package lists could not be brought up to date" >&2
for package in "${missing[@]}"; do
  apt-cache show "$package" >/dev/null 2>&1 || {
    echo "The package $package is not known to apt-get here. Are Debian's package sources set up?" >&2
    exit 1
  }
done
apt install -y --no-install-recommends "${missing[@]}" || {
  echo "Installing failed:" >&2
  tail -n 20 "$log" >&2
  exit 1
}
