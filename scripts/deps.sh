#!/usr/bin/env bash
# Installs the Debian packages Corvel builds and tests with, only those that are missing.
set -euo pipefail

packages=(
  cmake g++ make pkg-config
  qt6-base-dev qt6-multimedia-dev libgl-dev
  libsndfile1-dev libsamplerate0-dev
  mgetty-voice mgetty-pvftools kamailio
  liblinphone-dev sip-tester baresip-core
  libespeak-ng-dev libpocketsphinx-dev libsphinxbase-dev pocketsphinx-en-us libx11-dev
  espeak-ng sox xdg-utils xvfb xauth pulseaudio dbus libglib2.0-bin librsvg2-bin
  libgtest-dev libgmock-dev libbenchmark-dev clang libclang-rt-14-dev
  dpkg-dev lintian desktop-file-utils appstream man-db
)

missing=()
for package in "${packages[@]}"; do
  status=$(dpkg-query -W -f='${Status}' "$package" 2>/dev/null || true)
  [[ "$status" == "install ok installed" ]] || missing+=("$package")
done
[[ ${#missing[@]} -eq 0 ]] && exit 0

echo "Installing: ${missing[*]}"
sudo=()
[[ $(id -u) -eq 0 ]] || sudo=(sudo)
export DEBIAN_FRONTEND=noninteractive
"${sudo[@]}" apt-get update -qq
"${sudo[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
