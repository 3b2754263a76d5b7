#!/usr/bin/env bash
# Installs, on Debian 12 as root, whatever the build, the tests and the demo need and
# the machine does not have yet. Safe to run again: it installs only what is missing.
set -euo pipefail

packages=(
  cmake ninja-build g++ pkg-config file
  qtbase5-dev qtbase5-dev-tools libqt5remoteobjects5-dev
  libavformat-dev libavcodec-dev libavutil-dev libswscale-dev libswresample-dev libavfilter-dev
  libssl-dev openssl
  ffmpeg libimage-exiftool-perl
  clang libclang-rt-14-dev
)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done

if ((${#missing[@]})); then
  echo "Installing: ${missing[*]}"
  if [ "$(id -u)" -ne 0 ]; then
    echo "error: installing packages needs root (run as root or with sudo)" >&2
    exit 1
  fi
  export DEBIAN_FRONTEND=noninteractive
  apt-get update -qq
  apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi
