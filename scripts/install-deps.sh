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

# One query for all of them: fast when nothing is missing.
installed="$(dpkg-query -W -f='${Package} ${Status}\n' "${packages[@]}" 2>/dev/null | grep " install ok installed$" || true)"
missing=()
for p in "${packages[@]}"; do
  if ! grep -q "^$p install ok installed$" <<<"$installed"; then
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
