#!/usr/bin/env bash
# Installs the Debian 12 packages the build, tests, benchmarks and fuzz
# targets need, only those that are missing (needs root, or sudo).  This
# list is the whole of what the project needs beyond a minimal Debian:
# scripts/check_deps.sh fails the test command when a build used anything
# else.
#
#   scripts/deps.sh          install what is missing
#   scripts/deps.sh --list   print the list, one package a line
set -euo pipefail
packages=(
  build-essential cmake pkg-config binutils ccache
  libhwy-dev libgtest-dev libbenchmark-dev
  libpng-dev libjpeg62-turbo-dev libturbojpeg0-dev libjpeg-turbo-progs libtiff-dev libjxr-dev libjxr-tools libsquish-dev
  clang libclang-rt-14-dev libomp-14-dev
  ffmpeg dcmtk
  libopenjp2-7-dev
  libopenjp2-tools
  grokj2k-tools
  libosmesa6-dev
  imagemagick
  python3
)
if [ "${1:-}" = --list ]; then
  printf '%s\n' "${packages[@]}"
  exit 0
fi
missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  sudo=""
  [ "$(id -u)" -eq 0 ] || sudo="sudo"
  echo "installing: ${missing[*]}"
  $sudo apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi
