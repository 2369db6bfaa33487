#!/usr/bin/env bash
# Installs the Debian 12 packages the build, tests and benchmarks need,
# only those that are missing (needs root, or sudo).
set -euo pipefail
packages=(
  build-essential cmake pkg-config binutils
  libhwy-dev libgtest-dev libbenchmark-dev
  libpng-dev libjpeg62-turbo-dev libturbojpeg0-dev libjpeg-turbo-progs
  clang libclang-rt-14-dev
)
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
