#!/usr/bin/env bash
# Installs the Debian 12 packages Plotvik needs that this machine lacks, and
# any further packages named as arguments (a script's own tools).
set -euo pipefail

packages=(
  build-essential cmake ninja-build pkg-config git
  qt6-base-dev qt6-qpa-plugins libgl-dev
  libtinyxml2-dev libdwarf-dev libelf-dev zlib1g-dev
  libunicorn-dev
  gcc-arm-none-eabi libnewlib-arm-none-eabi binutils-arm-none-eabi
  googletest libgtest-dev libbenchmark-dev
  gdb-multiarch qemu-system-arm
  xvfb xauth imagemagick
  desktop-file-utils appstream lintian
  "$@"
)

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$p")
  fi
done

if [ ${#missing[@]} -eq 0 ]; then
  exit 0
fi

echo "Installing: ${missing[*]}"
sudo_cmd=()
if [ "$(id -u)" -ne 0 ]; then
  sudo_cmd=(sudo)
fi
"${sudo_cmd[@]}" apt-get update -qq
DEBIAN_FRONTEND=noninteractive "${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
