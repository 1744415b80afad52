#!/usr/bin/env bash
# Installs the Debian packages that building, testing and benchmarking need.
# Idempotent: only packages that are missing are installed; uses sudo when not root.
set -euo pipefail

packages=(
  build-essential cmake ninja-build g++ pkg-config git python3
  libcfitsio-dev libcfitsio-bin fitsverify
  libtbb-dev
  libraw-dev libjpeg62-turbo-dev libjpeg-turbo-progs
  libpng-dev pngcheck
  libtiff-dev
  libtiff-tools ffmpeg
  ocl-icd-opencl-dev opencl-headers
  googletest libgtest-dev libgmock-dev libbenchmark-dev
  clang-format
  qt6-base-dev qt6-qpa-plugins
  clang-14 libclang-rt-14-dev
  libopencv-core-dev libopencv-imgproc-dev
)

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$p")
  fi
done

if [ ${#missing[@]} -eq 0 ]; then
  echo "install-deps: everything is installed"
  exit 0
fi

SUDO=""
if [ "$(id -u)" -ne 0 ]; then
  SUDO="sudo"
fi

echo "install-deps: installing ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -qq
$SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
