#!/usr/bin/env bash
# Installs every Debian package the build, the tests and the program need.
set -euo pipefail
packages=(
  build-essential cmake ninja-build pkg-config git
  libavformat-dev libavcodec-dev libavutil-dev libswscale-dev libswresample-dev ffmpeg
  libsdl2-dev nlohmann-json3-dev libfmt-dev libsystemd-dev libxext-dev libxrandr-dev libxss-dev
  googletest libgtest-dev libgmock-dev libbenchmark-dev
  clang libclang-rt-14-dev clang-19 libc++-19-dev libc++abi-19-dev
  xvfb x11-utils x11-apps x11-xserver-utils imagemagick sox pulseaudio pulseaudio-utils dbus-daemon dbus-bin bc python3
  xscreensaver util-linux stress-ng
  zsh fish man-db groff-base bsdextrautils lintian desktop-file-utils appstream dpkg-dev
)
missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  sudo_cmd=""
  [ "$(id -u)" = 0 ] || sudo_cmd="sudo"
  $sudo_cmd apt-get update
  DEBIAN_FRONTEND=noninteractive $sudo_cmd apt-get install -y --no-install-recommends "${missing[@]}"
fi
