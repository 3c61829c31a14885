#!/usr/bin/env bash
# Configures and builds Plotvik into build/ (or $PLOTVIK_BUILD_DIR).
# Extra arguments go to CMake (for example -DPLOTVIK_SANITIZE=ON).
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
build="${PLOTVIK_BUILD_DIR:-$root/build}"
"$root/scripts/install-deps.sh"
cmake -S "$root" -B "$build" -G Ninja -DPLOTVIK_WERROR=ON "$@" >/dev/null
cmake --build "$build" --parallel "$(nproc)"
