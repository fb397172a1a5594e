#!/usr/bin/env bash
# Installs what building and testing need on Debian 12, and only what is
# missing: with everything present it changes nothing and takes a moment.
# Installing needs root. With the argument "windows" it installs what the
# Windows build and its tests under Wine need instead: the mingw-w64 cross
# compiler with posix threads, GoogleTest's sources and Wine.
set -euo pipefail

packages=(
  cmake g++ clang ninja-build libclang-rt-14-dev
  libgtest-dev libbenchmark-dev nlohmann-json3-dev
  ffmpeg python3 python3-mutagen mkvtoolnix
  imagemagick libavif-bin libheif-examples libjxl-tools webp file
)
if [[ ${1:-} == windows ]]; then
  packages=(cmake ninja-build ffmpeg g++-mingw-w64-x86-64-posix googletest wine wine64)
fi

missing=()
for package in "${packages[@]}"; do
  status=$(dpkg-query -W -f='${Status}' "$package" 2>/dev/null || true)
  if [[ "$status" != "install ok installed" ]]; then
    missing+=("$package")
  fi
done

if [[ ${#missing[@]} -eq 0 ]]; then
  echo "setup-deps: all packages present"
  exit 0
fi

echo "setup-deps: missing: ${missing[*]}"
if [[ $(id -u) -ne 0 ]]; then
  echo "setup-deps: run as root to install them (apt-get install ${missing[*]})" >&2
  exit 1
fi

export DEBIAN_FRONTEND=noninteractive
apt-get update
apt-get install -y --no-install-recommends "${missing[@]}"
